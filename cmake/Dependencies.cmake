# Every library is found as an installed package. A missing one stops the configure step and names
# the Debian package that brings it, because that is what the reader has to type next.

function(require_package name debian_package)
  cmake_parse_arguments(ARG "" "VERSION" "" ${ARGN})
  find_package(${name} ${ARG_VERSION} QUIET CONFIG)
  if(NOT ${name}_FOUND)
    message(FATAL_ERROR
      "${name} ${ARG_VERSION} was not found. On Debian and Ubuntu: apt-get install ${debian_package}")
  endif()
  message(STATUS "${name}: ${${name}_DIR}")
endfunction()

require_package(Eigen3 libeigen3-dev VERSION 3.4)
require_package(nanoflann libnanoflann-dev)
require_package(Ceres libceres-dev VERSION 2.1)

# The minimiser stays a shared library, even where its package would rather be linked in. It brings
# code of Eigen's that was compiled for other vector units than ours; inside one library the linker
# keeps a single copy of each function, and the two disagree on how memory is aligned.
add_library(shared_ceres INTERFACE)
get_target_property(ceres_type Ceres::ceres TYPE)
if(ceres_type STREQUAL "STATIC_LIBRARY")
  find_library(CERES_SHARED_LIBRARY NAMES libceres.so libceres.dylib)
  if(NOT CERES_SHARED_LIBRARY)
    message(FATAL_ERROR "Ceres was found as a static library alone; a shared one is needed. On "
      "Debian and Ubuntu: apt-get install libceres-dev")
  endif()
  target_include_directories(shared_ceres SYSTEM INTERFACE
    $<TARGET_PROPERTY:Ceres::ceres,INTERFACE_INCLUDE_DIRECTORIES>)
  target_compile_definitions(shared_ceres INTERFACE
    $<TARGET_PROPERTY:Ceres::ceres,INTERFACE_COMPILE_DEFINITIONS>)
  target_link_libraries(shared_ceres INTERFACE "${CERES_SHARED_LIBRARY}" glog::glog)
else()
  target_link_libraries(shared_ceres INTERFACE Ceres::ceres)
endif()

find_path(FFTW3_INCLUDE_DIR fftw3.h)
find_library(FFTW3_LIBRARY fftw3)
find_library(FFTW3_THREADS_LIBRARY fftw3_threads)
if(NOT FFTW3_INCLUDE_DIR OR NOT FFTW3_LIBRARY OR NOT FFTW3_THREADS_LIBRARY)
  message(FATAL_ERROR
    "FFTW3 with its threads library was not found. On Debian and Ubuntu: apt-get install libfftw3-dev")
endif()
message(STATUS "FFTW3: ${FFTW3_LIBRARY}")
add_library(fftw3_with_threads INTERFACE)
target_include_directories(fftw3_with_threads SYSTEM INTERFACE "${FFTW3_INCLUDE_DIR}")
target_link_libraries(fftw3_with_threads INTERFACE "${FFTW3_THREADS_LIBRARY}" "${FFTW3_LIBRARY}")

find_package(OpenMP QUIET COMPONENTS CXX)
if(NOT OpenMP_CXX_FOUND)
  message(FATAL_ERROR "OpenMP was not found for ${CMAKE_CXX_COMPILER}. With g++ it comes with the "
    "compiler; for clang on Debian and Ubuntu: apt-get install libomp-dev")
endif()
find_package(Threads REQUIRED)

find_package(Python 3.10 REQUIRED COMPONENTS Interpreter Development.Module)
if(NOT pybind11_DIR)
  execute_process(COMMAND "${Python_EXECUTABLE}" -m pybind11 --cmakedir
    OUTPUT_VARIABLE pybind11_DIR OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
find_package(pybind11 2.13 QUIET CONFIG)
if(NOT pybind11_FOUND)
  message(FATAL_ERROR "pybind11 2.13 was not found for ${Python_EXECUTABLE}. "
    "Install it there (pip install 'pybind11>=2.13,<2.14')")
endif()
message(STATUS "pybind11 ${pybind11_VERSION}: ${pybind11_DIR}")

#include "module/processor.h"

#ifdef TALVORIX_WIDE_COPY
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <string>
#endif

namespace talvorix::python {

bool processor_is_able() {
#if defined(__x86_64__) && defined(__SSE4_2__)
  bool able = __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt");
#if defined(__AVX2__)
  able = able && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
         __builtin_cpu_supports("bmi2");
#endif
#if defined(__AVX512F__)
  able = able && __builtin_cpu_supports("avx512f");
#endif
  if (!able) {
    PyErr_SetString(PyExc_ImportError,
                    "talvorix was compiled for " TALVORIX_ARCH
                    ", whose vector units this processor lacks; build it with another "
                    "TALVORIX_ARCH (for example native)");
    return false;
  }
#endif
  return true;
}

#ifdef TALVORIX_WIDE_COPY

namespace {

using Entry = PyObject* (*)();

// Beside this module, wherever it is installed; empty when the loader does not know where it is.
std::string path_of_wide_copy() {
  Dl_info here;
  if (dladdr(reinterpret_cast<const void*>(&processor_is_able), &here) == 0 ||
      here.dli_fname == nullptr) {
    return {};
  }
  const std::string module = here.dli_fname;
  const std::size_t slash = module.rfind('/');
  return (slash == std::string::npos ? "./" : module.substr(0, slash + 1)) + TALVORIX_WIDE_COPY;
}

// The copies share no symbols: each exports its entry alone, and the loader keeps the second one's
// to itself.
Entry load_wide_copy() {
  void* copy = dlopen(path_of_wide_copy().c_str(), RTLD_NOW | RTLD_LOCAL);
  void* entry = copy == nullptr ? nullptr : dlsym(copy, "PyInit_talvorix");
  if (entry == nullptr) {
    const char* reason = dlerror();
    PyErr_Format(PyExc_ImportError,
                 "talvorix could not load its copy for " TALVORIX_WIDE_ARCH
                 " (%s); install it anew, or set TALVORIX_CPU=" TALVORIX_ARCH " to do without",
                 reason == nullptr ? "no reason given" : reason);
  }
  return reinterpret_cast<Entry>(entry);
}

bool wants_wide_copy(bool& failed) {
  const bool able = __builtin_cpu_supports(TALVORIX_WIDE_ARCH);
  const char* wish = std::getenv("TALVORIX_CPU");
  if (wish == nullptr || *wish == '\0') {
    return able;
  }
  if (std::strcmp(wish, TALVORIX_ARCH) == 0) {
    return false;
  }
  failed = true;
  if (std::strcmp(wish, TALVORIX_WIDE_ARCH) != 0) {
    PyErr_Format(PyExc_ImportError,
                 "the environment variable TALVORIX_CPU is '%s'; expected " TALVORIX_ARCH
                 " or " TALVORIX_WIDE_ARCH ", or nothing for the best this processor can run",
                 wish);
  } else if (!able) {
    PyErr_SetString(PyExc_ImportError,
                    "the environment variable TALVORIX_CPU is " TALVORIX_WIDE_ARCH
                    ", which this processor cannot run; expected " TALVORIX_ARCH " or nothing");
  } else {
    failed = false;
  }
  return !failed;
}

}  // namespace

WideCopy find_wide_copy() {
  // Settled at the first import: a process that held both would have two classes of each name.
  static bool settled = false;
  static Entry entry = nullptr;
  if (!settled) {
    bool failed = false;
    if (wants_wide_copy(failed)) {
      entry = load_wide_copy();
      failed = entry == nullptr;
    }
    if (failed) {
      return {nullptr, true};
    }
    settled = true;
  }
  return {entry, false};
}

#endif

}  // namespace talvorix::python

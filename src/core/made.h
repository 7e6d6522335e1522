#pragma once

#include <memory>
#include <utility>

namespace talvorix {

// How a function object was made, in the terms of the language that the library is called from.
class Recipe {
 public:
  Recipe() = default;
  virtual ~Recipe() = default;
  Recipe(const Recipe&) = delete;
  Recipe& operator=(const Recipe&) = delete;
};

// A function object that carries along how it was made, so that it can be made again elsewhere.
// Copies share the recipe. The library itself never reads it.
class Made {
 public:
  const std::shared_ptr<const Recipe>& recipe() const { return recipe_; }
  void set_recipe(std::shared_ptr<const Recipe> recipe) { recipe_ = std::move(recipe); }

 private:
  std::shared_ptr<const Recipe> recipe_;
};

}  // namespace talvorix

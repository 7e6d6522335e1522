#pragma once

#include "algebra/expression.h"
#include "core/interrupt.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace talvorix::ast {

// Walks a graph in the order in which it is evaluated, on a stack of its own, so that graphs may be
// as deep as memory holds. What values are, what cells hold and what arithmetic does with them is
// the domain's: numbers to evaluate a graph, references to compile it.
//
// A domain has the types Scalar and List; scalar(node), list(node) and shape(node) to read cells;
// store(node, value), which sets a cell and the shape, and set_shape(node, shape), both telling
// whether the shape changed; computed(node, shape), a number that it keeps for each cell, first 0;
// number(x) and numbers(x) for constants; note_call(), told of every call; and the arithmetic used
// below.
template <class T, class Domain>
class Traversal {
 public:
  using Node = Expression<T>;
  using Scalar = typename Domain::Scalar;
  using List = typename Domain::List;

  Traversal(Domain& domain, PollRef poll) : domain_(domain), poll_(poll) {}

  Scalar scalar(Node& root) {
    run(root, Shape::scalar);
    return pop(scalars_);
  }
  List list(Node& root) {
    run(root, Shape::list);
    return pop(lists_);
  }

 private:
  enum class Step { visit, combine, copy, bind, bind_next, take_result };

  struct Task {
    Step step;
    Shape shape;  // what is asked for
    Node* node;
    std::size_t operand = 0;
    std::uint64_t begun = 0;
    Shape inner = Shape::scalar;  // what was asked of what the node takes
  };

  void run(Node& root, Shape shape) {
    tasks_.push_back({Step::visit, shape, &root});
    while (!tasks_.empty()) {
      poll_();
      const Task task = pop(tasks_);
      switch (task.step) {
        case Step::visit:
          visit(*task.node, task.shape);
          break;
        case Step::combine:
          combine(static_cast<Transformation<T>&>(*task.node), task);
          break;
        case Step::copy:
          finish(*task.node, task);
          break;
        case Step::bind:
          bind(static_cast<Transformation<T>&>(*task.node), task);
          break;
        case Step::bind_next:
          bind_next(static_cast<Transformation<T>&>(*task.node), task);
          break;
        case Step::take_result:
          take_result(task);
          break;
      }
    }
  }

  void visit(Node& node, Shape shape) {
    switch (node.kind()) {
      case Kind::variable:
        if (shape == Shape::scalar) {
          note_change(domain_.set_shape(node, Shape::scalar));
        }
        push_cell(node, shape);
        return;
      case Kind::value:
        if (domain_.shape(node) != shape) {
          throw std::runtime_error("invalid eval call!!!");
        }
        push_cell(node, shape);
        return;
      case Kind::transformation:
      case Kind::function:
        break;
      case Kind::expression:
      case Kind::kernel:
        throw std::runtime_error("invalid call!!!\n");
    }
    // Nothing that it depends on was changed since its cell was computed.
    if (domain_.computed(node, shape) == stretch_ && domain_.shape(node) == shape) {
      push_cell(node, shape);
      return;
    }
    if (node.kind() == Kind::function) {
      tasks_.push_back({Step::copy, shape, &node, 0, stretch_});
      tasks_.push_back({Step::visit, shape, static_cast<Function<T>&>(node).expression().get()});
    } else {
      visit_operands(static_cast<Transformation<T>&>(node), shape);
    }
  }

  void visit_operands(Transformation<T>& node, Shape shape) {
    if (node.operation() == Operation::call) {
      domain_.note_call();
      tasks_.push_back({Step::bind_next, shape, &node});
      return;
    }
    if (node.result() != shape) {
      throw std::runtime_error("invalid call!!!\n");
    }
    if (node.error() != nullptr) {
      throw std::runtime_error(node.error());
    }
    tasks_.push_back({Step::combine, shape, &node, 0, stretch_});
    // The left one comes first.
    if (node.right() == Transformation<T>::Right::node) {
      tasks_.push_back({Step::visit, node.right_shape(), node.operands()[1].get()});
    }
    tasks_.push_back({Step::visit, node.left_shape(), node.operands()[0].get()});
  }

  void combine(Transformation<T>& node, const Task& task) {
    const bool is_scalar = node.left_shape() == Shape::scalar;
    switch (node.right()) {
      case Transformation<T>::Right::node:
        if (is_scalar) {
          const Scalar right = pop(scalars_);
          const Scalar left = pop(scalars_);
          scalars_.push_back(of_scalars(node.operation(), left, right));
        } else {
          const List right = pop(lists_);
          of_lists(node.operation(), pop(lists_), right);
        }
        break;
      case Transformation<T>::Right::number: {
        const Scalar right = domain_.number(node.number());
        if (is_scalar) {
          scalars_.push_back(of_scalars(node.operation(), pop(scalars_), right));
        } else {
          const List left = pop(lists_);
          lists_.push_back(node.operation() == Operation::multiply ? domain_.scaled(left, right)
                                                                   : domain_.divided(left, right));
        }
        break;
      }
      case Transformation<T>::Right::list:
        if (is_scalar) {
          lists_.push_back(domain_.scaled(domain_.numbers(node.numbers()), pop(scalars_)));
        } else if (node.operation() == Operation::multiply) {
          // The constant is not read: deliberate.
          scalars_.push_back(domain_.sum_of_squares(pop(lists_)));
        } else {
          of_lists(node.operation(), pop(lists_), domain_.numbers(node.numbers()));
        }
        break;
    }
    finish(node, task);
  }

  Scalar of_scalars(Operation operation, const Scalar& left, const Scalar& right) {
    switch (operation) {
      case Operation::add:
        return domain_.add(left, right);
      case Operation::subtract:
        return domain_.subtract(left, right);
      case Operation::multiply:
        return domain_.multiply(left, right);
      case Operation::divide:
      case Operation::call:
        break;
    }
    return domain_.divide(left, right);
  }

  void of_lists(Operation operation, const List& left, const List& right) {
    switch (operation) {
      case Operation::add:
        lists_.push_back(domain_.add(left, right));
        break;
      case Operation::subtract:
        lists_.push_back(domain_.subtract(left, right));
        break;
      case Operation::multiply:
        scalars_.push_back(domain_.dot(left, right));
        break;
      case Operation::divide:
      case Operation::call:
        // The right list is evaluated but not read: deliberate.
        scalars_.push_back(domain_.divide(domain_.number(T(1.0)), domain_.sum_of_squares(left)));
        break;
    }
  }

  // Operands are asked for what they yield when their turn has come.
  void bind_next(Transformation<T>& node, const Task& task) {
    if (task.operand < node.operands().size()) {
      Node& operand = *node.operands()[task.operand];
      const Shape inner = domain_.shape(operand);
      tasks_.push_back({Step::bind_next, task.shape, &node, task.operand + 1});
      tasks_.push_back({Step::bind, task.shape, &node, task.operand, 0, inner});
      tasks_.push_back({Step::visit, inner, &operand});
    } else {
      Node& expression = *node.function().expression();
      const Shape inner = domain_.shape(expression);
      tasks_.push_back({Step::take_result, task.shape, &node, 0, 0, inner});
      tasks_.push_back({Step::visit, inner, &expression});
    }
  }

  void bind(Transformation<T>& node, const Task& task) {
    Node& variable = *node.function().arguments()[task.operand];
    if (task.inner == Shape::scalar) {
      domain_.store(variable, pop(scalars_));
    } else {
      domain_.store(variable, pop(lists_));
    }
    note_change(true);
  }

  void take_result(const Task& task) {
    if (task.inner == Shape::scalar && task.shape == Shape::list) {
      lists_.push_back(domain_.list_of(pop(scalars_)));
    } else if (task.inner == Shape::list && task.shape == Shape::scalar) {
      scalars_.push_back(domain_.norm(pop(lists_)));
    }
    finish(*task.node, task);
  }

  // Keeps the value on top of the stack in the node's cell.
  void finish(Node& node, const Task& task) {
    const bool changed = task.shape == Shape::scalar ? domain_.store(node, Scalar(scalars_.back()))
                                                     : domain_.store(node, List(lists_.back()));
    note_change(changed);
    if (task.begun == stretch_) {
      domain_.computed(node, task.shape) = stretch_;
    }
  }

  void push_cell(Node& node, Shape shape) {
    if (shape == Shape::scalar) {
      scalars_.push_back(domain_.scalar(node));
    } else {
      lists_.push_back(domain_.list(node));
    }
  }

  void note_change(bool changed) {
    if (changed) {
      stretch_ = domain_.next_stretch();
    }
  }

  template <class Item>
  static Item pop(std::vector<Item>& items) {
    Item item = std::move(items.back());
    items.pop_back();
    return item;
  }

  Domain& domain_;
  PollRef poll_;
  // Numbers the stretches of evaluation in which no variable and no shape changes.
  std::uint64_t stretch_ = domain_.next_stretch();
  std::vector<Task> tasks_;
  std::vector<Scalar> scalars_;
  std::vector<List> lists_;
};

}  // namespace talvorix::ast

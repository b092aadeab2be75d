#pragma once
// The tiles' state machine: the ordered edges between states. For the state a tile is in and the
// result it handles, the first edge (in table order) whose predicates all hold decides what
// happens. Built once per process and never changed, so it is read without a lock.

#include <cstddef>
#include <memory>
#include <typeindex>
#include <vector>

#include "cores/StateTransitionCondition.h"

namespace lm2 {

class StateTransitionTable {
 public:
  struct Match {
    const StateTransitionCondition* edge = nullptr;
    // The edge's row, counted from 1 in table order; 0 when no edge applies.
    std::size_t row = 0;
  };

  static const StateTransitionTable& instance();

  Match find(std::type_index current, const CCredentialStub* tile, const CtxTokenEngine4CP* context) const;
  const std::vector<std::unique_ptr<StateTransitionCondition>>& edges() const noexcept { return m_edges; }

 private:
  StateTransitionTable();
  template <class From, class To, class Action>
  void add(std::vector<TransitionPredicate> predicates, Action action);

  std::vector<std::unique_ptr<StateTransitionCondition>> m_edges;
};

}  // namespace lm2

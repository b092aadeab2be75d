#pragma once
// One edge of the tiles' state machine: in state From, a result for which every predicate holds
// leads to state To (void: the result names its own target), and the edge's action prepares the
// target core from the result before the core loads.

#include <functional>
#include <type_traits>
#include <typeindex>
#include <utility>
#include <vector>

#include "cores/CredentialCoreBase.h"
#include "tokenengine/Contexts.h"

namespace lm2 {

class CCredentialStub;

using TransitionPredicate = bool (*)(const CCredentialStub* tile, const CtxTokenEngine4CP* context);

class StateTransitionCondition {
 public:
  using Action = std::function<void(CCredentialCoreBase* target, const CtxTokenEngine4CP* context)>;

  StateTransitionCondition(std::type_index source, std::type_index target, std::vector<TransitionPredicate> predicates,
                           Action action)
      : m_source(source), m_target(target), m_predicates(std::move(predicates)), m_action(std::move(action)) {}
  StateTransitionCondition(const StateTransitionCondition&) = default;
  StateTransitionCondition& operator=(const StateTransitionCondition&) = default;
  virtual ~StateTransitionCondition() = default;

  std::type_index source() const noexcept { return m_source; }
  std::type_index target() const noexcept { return m_target; }
  const std::vector<TransitionPredicate>& predicates() const noexcept { return m_predicates; }

  // Every predicate, in order, stopping at the first that does not hold.
  bool holds(const CCredentialStub* tile, const CtxTokenEngine4CP* context) const {
    for (TransitionPredicate predicate : m_predicates) {
      if (!predicate(tile, context)) return false;
    }
    return true;
  }

  // Runs the action (a missing one is a programming error: std::bad_function_call).
  virtual void invoke(CCredentialCoreBase* target, const CtxTokenEngine4CP* context) const {
    m_action(target, context);
  }

 private:
  std::type_index m_source;
  std::type_index m_target;
  std::vector<TransitionPredicate> m_predicates;
  Action m_action;
};

// The edge from state From to state To, whose action gets the target core as a To (null when the
// core created is of another class, which a result naming its own target can cause).
template <class From, class To>
class SpecificStateTransitionCondition : public StateTransitionCondition {
 public:
  using TypedAction = std::function<void(To* target, const CtxTokenEngine4CP* context)>;

  SpecificStateTransitionCondition(std::vector<TransitionPredicate> predicates, TypedAction action)
      : StateTransitionCondition(typeid(From), typeid(To), std::move(predicates),
                                 [action = std::move(action)](CCredentialCoreBase* target,
                                                              const CtxTokenEngine4CP* context) {
                                   action(cast(target), context);
                                 }) {}

 private:
  static To* cast(CCredentialCoreBase* core) {
    if constexpr (std::is_void_v<To>) {
      return core;
    } else {
      return dynamic_cast<To*>(core);
    }
  }
};

}  // namespace lm2

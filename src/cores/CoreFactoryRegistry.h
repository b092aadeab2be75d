#pragma once
// Makes the core of a state for a core set: the default set (empty name) has a core for every
// state a tile can be made to enter; a customer set ("Kaldera") replaces some of them. Built once
// per process and read without a lock.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <typeindex>
#include <utility>

#include "cores/CredentialCoreBase.h"

namespace lm2 {

class CoreFactoryRegistry {
 public:
  using Factory = std::function<std::unique_ptr<CCredentialCoreBase>(CCredentialStub* tile)>;

  static const CoreFactoryRegistry& instance();

  // A new core of `state` from `coreSet`, or from the default set when `coreSet` has none; null
  // when neither has one.
  std::unique_ptr<CCredentialCoreBase> create(std::type_index state, const std::wstring& coreSet,
                                              CCredentialStub* tile) const;

 private:
  CoreFactoryRegistry();
  template <class State, class Core = State>
  void add(const std::wstring& coreSet = L"");

  std::map<std::pair<std::type_index, std::wstring>, Factory> m_factories;
};

}  // namespace lm2

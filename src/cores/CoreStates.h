#pragma once
// The tile states whose cores arrive with the features that need them (password changes). The
// transition table already knows them by their class; until a state's cores are registered with
// the factory registry, a transition into it ends in the message "The subsequent state can not be
// resolved ...", exactly as for any state the registry cannot make. These classes are never
// instantiated: each state's real cores derive from (and then replace) its declaration here.

#include <typeindex>

#include "cores/AddCredentialCore.h"
#include "cores/CredentialCoreBase.h"
#include "cores/InitializeTokenCore.h"
#include "cores/KnownUserLogonCores.h"
#include "cores/MultiUserTokenLogonCore.h"

namespace lm2 {

#define LM2_PENDING_STATE(Name, Base)                                        \
  class Name : public Base {                                                 \
   public:                                                                   \
    using Base::Base;                                                        \
    std::type_index GetTypeIndex() const override { return typeid(Name); }   \
  };

LM2_PENDING_STATE(CCredentialCoreChangePasswordOnToken, CCredentialCoreBase)
LM2_PENDING_STATE(CCredentialCoreChangePasswordWithToken, CCredentialCoreBase)
LM2_PENDING_STATE(CCredentialCoreChangePasswordIsMandatory, CCredentialCoreBase)

#undef LM2_PENDING_STATE

}  // namespace lm2

#pragma once
// The fixed category names of the trace. Administrators route them to appenders by these names.

namespace lm2::logging::categories {

inline constexpr const char kCredentialProvider[] = "CredentialProvider";
inline constexpr const char kProvControlHandling[] = "ProvControlHandling";
inline constexpr const char kCredentialProviderCredential[] = "CredentialProviderCredential";
inline constexpr const char kCredControlHandling[] = "CredControlHandling";
inline constexpr const char kCredentialProviderCore[] = "CredentialProviderCore";
inline constexpr const char kCoreControlHandling[] = "CoreControlHandling";
inline constexpr const char kTokenEngineAbstractionLayer[] = "TokenEngineAbstractionLayer";

}  // namespace lm2::logging::categories

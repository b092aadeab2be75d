#pragma once
// The result codes the token engine layers produce themselves (docs/facade-interface.md lists
// them with the engine's own codes). All but the two informational ones count as failed.

#include "logging/ExtendedResult.h"

namespace lm2::layer_codes {

// The facade library was already initialised: success with information.
inline constexpr ExtendedResult kSecondInitialization = 0x6000000060100007ull;
// A find that succeeded without finding an object: success with information.
inline constexpr ExtendedResult kNoObjectFound = 0x6000000060100009ull;
// The find task itself could not be run.
inline constexpr ExtendedResult kFindFailed = 0xE0000000E0100004ull;
// Waiting for a task ended because the library is being unloaded.
inline constexpr ExtendedResult kUnloading = 0xE0000000E0100005ull;
// A task's response lacked an item the layer needs.
inline constexpr ExtendedResult kInvalidResponse = 0xE0000000E0100006ull;
// A text from the token is not valid UTF-8.
inline constexpr ExtendedResult kInvalidText = 0xE0000000E0100008ull;
// Code 19: an object the token's own data points to is not there (find result without its list,
// object information missing, or no password object for an account): the token's credential
// data changed or is damaged, so the tile goes back to the logon it came from.
inline constexpr ExtendedResult kObjectMissing = 0xE0000000E0100013ull;
// Code 20: no token engine is installed on this computer (the facade library file is absent).
// Permanent, unlike the other initialisation failures, so the tile shows a message instead of
// offering to retry.
inline constexpr ExtendedResult kFacadeNotInstalled = 0xE0000000E0100014ull;

// Code 21: the library's function table is smaller than the provider needs or lacks an entry;
// such a library is never called.
inline constexpr ExtendedResult kIncompatibleLibrary = 0xE0000000E0100015ull;
// Code 22: an operation came before the library was initialised (or after initialisation failed).
inline constexpr ExtendedResult kNotInitialized = 0xE0000000E0100016ull;
// Code 23: an operation on credentials an access card does not hold (PIN, password, objects,
// initialisation): the card-id layer answers it without calling the library.
inline constexpr ExtendedResult kNotForAccessCards = 0xE0000000E0100017ull;

}  // namespace lm2::layer_codes

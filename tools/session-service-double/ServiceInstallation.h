#pragma once
// Registering the double as LM2SessionManagementService with the service control manager, as an
// installer registers the real service: for the tests and the demo. Needs administrator rights.

#include <string>
#include <vector>

namespace lm2::tools {

// Removes any service of that name, then registers this program (demand start, stopped) with
// `arguments` on its service command line. False with `error` set when that fails.
bool installService(const std::vector<std::wstring>& arguments, std::wstring& error);

// Stops the service and deletes it; a service that does not take the stop request (it is still
// starting) has its process ended, so that it can never serve the pipe afterwards. False with
// `error` set when the service control manager cannot be opened; no such service is no failure.
bool removeService(std::wstring& error);

}  // namespace lm2::tools

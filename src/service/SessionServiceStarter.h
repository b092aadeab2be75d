#pragma once

namespace lm2::service {

// Starts the session service and waits while it reports progress; true when it runs.
bool startSessionService();

}  // namespace lm2::service

#pragma once

#include <tarvex/platform/run_loop.h>

namespace console_host {

/// Shows the library's consent screen as text and presses the button that the user chooses; without a terminal it
/// consents for the demonstration, and says so. Returns the decision.
bool askForConsent(tarvex::platform::RunLoop& loop);

}  // namespace console_host

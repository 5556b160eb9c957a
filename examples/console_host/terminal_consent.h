#pragma once

#include <tarvex/data_reader.h>
#include <tarvex/platform/run_loop.h>

#include <vector>

namespace console_host {

/// Shows the library's consent screen for the readers as text and presses the button that the user chooses; without a
/// terminal it consents for the demonstration, and says so. Returns the decision.
bool askForConsent(tarvex::platform::RunLoop& loop, const std::vector<tarvex::DataReader>& readers);

}  // namespace console_host

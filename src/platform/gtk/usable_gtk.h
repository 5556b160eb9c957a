#pragma once

namespace tarvex::gtk {

/// Whether no other major version of GTK is in the process, with which GTK would end it. When there is one, says so on
/// standard error, once.
bool isAloneInProcess();

/// Initialises GTK unless the host has; false where it cannot be, which is then said on standard error, once.
bool isUsable();

}  // namespace tarvex::gtk

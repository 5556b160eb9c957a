#pragma once

namespace tarvex::gtk {

/// False when another major version of GTK is in the process, with which GTK would end it; logs one warning then.
bool isAloneInProcess();

/// Initialises GTK unless the host has; false where it cannot be, with one warning that says why.
bool isUsable();

}  // namespace tarvex::gtk

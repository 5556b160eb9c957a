#pragma once

#include "tarvex-gtk-consent-screen.h"
#include "tarvex-gtk-view.h"

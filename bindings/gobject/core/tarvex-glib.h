#pragma once

#include "tarvex-client.h"
#include "tarvex-consent-request.h"
#include "tarvex-error.h"
#include "tarvex-glib-export.h"
#include "tarvex-reader.h"
#include "tarvex-view.h"

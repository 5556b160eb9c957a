#pragma once

#include "tarvex-glib-export.h"

G_BEGIN_DECLS

/**
 * TarvexReader:
 * @TARVEX_READER_DISTANCE: the distance of each eye from the front camera
 * @TARVEX_READER_AMBIENT_LIGHT: the ambient light
 *
 * A signal that the library can sample. The numbers are fixed.
 */
typedef enum { TARVEX_READER_DISTANCE = 0, TARVEX_READER_AMBIENT_LIGHT = 1 } TarvexReader;

#define TARVEX_TYPE_READER (tarvex_reader_get_type())
TARVEX_GLIB_EXPORT GType tarvex_reader_get_type(void) G_GNUC_CONST;

G_END_DECLS

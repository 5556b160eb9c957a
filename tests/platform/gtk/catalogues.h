#pragma once

#include <libintl.h>

#include <cstdlib>

namespace tarvex::test {

/// Makes the test's catalogues the host's default domain, and `language` the one of its messages.
inline void useLanguage(const char* language) {
    ::setenv("LANGUAGE", language, 1);
    bindtextdomain("host", TARVEX_TEST_CATALOGUES);
    bind_textdomain_codeset("host", "UTF-8");
    textdomain("host");
}

}  // namespace tarvex::test

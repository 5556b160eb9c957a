#include "tarvex-gtk-view.h"

#include "private.h"
#include "tarvex/gtk.h"

using tarvex::platform::Platform;

void tarvex_gtk_add_to(TarvexClient* client) {
    g_return_if_fail(TARVEX_IS_CLIENT(client));
    // What a module keeps in the platform is looked at by no other thread: so it can be added late as well.
    if (tarvex_private_customize([](Platform& platform) { tarvex::gtk::addTo(platform); }) == FALSE)
        tarvex::gtk::addTo(Platform::current());
}

TarvexView* tarvex_gtk_wrap(GtkOverlay* overlay) {
    g_return_val_if_fail(GTK_IS_OVERLAY(overlay), tarvex_view_new());
    return tarvex_private_view(tarvex::gtk::wrap(GTK_WIDGET(overlay)));
}

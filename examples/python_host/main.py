"""A host in Python, with a window: asks, measures the ambient light once a second, and shares it."""

import gi

for name, version in {"Gtk": "4.0", "Tarvex": "0", "TarvexGtk": "0"}.items():
    gi.require_version(name, version)
from gi.repository import GLib, GObject, Gtk, Tarvex, TarvexGtk


class Study(Gtk.Application):
    client = Tarvex.Client.get_default()

    def do_activate(self):
        TarvexGtk.add_to(self.client)  # shares as well when the window goes to the background
        self.window = Gtk.ApplicationWindow(application=self, title="Light Study", default_width=420, default_height=760)
        try:
            self.start()
        except GLib.Error as error:
            print(error.message)
            request = Tarvex.ConsentRequest.new("Light Study", "Why we ask.", [Tarvex.Reader.AMBIENT_LIGHT], None)
            request.connect("decided", self.decided)
            self.window.set_child(TarvexGtk.ConsentScreen(request=request))
        self.window.present()

    def decided(self, request, consented):
        self.start() if consented else self.window.close()

    def start(self):
        self.client.start(Tarvex.Reader.AMBIENT_LIGHT, 1, None)
        page = Gtk.Box(orientation=Gtk.Orientation.VERTICAL, spacing=24, valign=Gtk.Align.CENTER)
        label, button = Gtk.Label(css_classes=["title-1"]), Gtk.Button(label="Stop and share", halign=Gtk.Align.CENTER)
        self.client.bind_property("count", label, "label", GObject.BindingFlags.SYNC_CREATE, lambda _, n: f"{n} samples")
        button.connect("clicked", self.stop)
        page.append(label)
        page.append(button)
        self.window.set_child(page)
        button.grab_focus()

    def stop(self, button):
        self.client.stop_all()
        self.client.share_async(True, self.shared)

    def shared(self, client, result):
        try:
            client.share_finish(result)
        except GLib.Error as error:
            print(error.message)


if __name__ == "__main__":
    Study(application_id="org.tarvex.PythonHost").run()

// A host in JavaScript, with a window: asks, measures the ambient light once a second, and shares it.

import Gio from 'gi://Gio';
import GObject from 'gi://GObject';
import Gtk from 'gi://Gtk?version=4.0';
import Tarvex from 'gi://Tarvex?version=0';
import TarvexGtk from 'gi://TarvexGtk?version=0';

Gio._promisify(Tarvex.Client.prototype, 'share_async', 'share_finish');
const client = Tarvex.Client.get_default();
const application = new Gtk.Application({application_id: 'org.tarvex.JavaScriptHost'});

function start(window) {
    client.start(Tarvex.Reader.AMBIENT_LIGHT, 1, null);
    const page = new Gtk.Box({orientation: Gtk.Orientation.VERTICAL, spacing: 24, valign: Gtk.Align.CENTER});
    const label = new Gtk.Label({css_classes: ['title-1']});
    const button = new Gtk.Button({label: 'Stop and share', halign: Gtk.Align.CENTER});
    client.bind_property_full('count', label, 'label', GObject.BindingFlags.SYNC_CREATE, (_, n) => [true, `${n} samples`], null);
    button.connect('clicked', () => {
        client.stop_all();
        client.share_async(true).catch(error => print(error.message));
    });
    page.append(label);
    page.append(button);
    window.set_child(page);
    button.grab_focus();
}

application.connect('activate', () => {
    TarvexGtk.add_to(client); // shares as well when the window goes to the background
    const window = new Gtk.ApplicationWindow({application, title: 'Light Study', default_width: 420, default_height: 760});
    try {
        start(window);
    } catch (error) {
        print(error.message);
        const request = Tarvex.ConsentRequest.new('Light Study', 'Why we ask.', [Tarvex.Reader.AMBIENT_LIGHT], null);
        request.connect('decided', (_, consented) => (consented ? start(window) : window.close()));
        window.set_child(new TarvexGtk.ConsentScreen({request}));
    }
    window.present();
});
application.run([]);

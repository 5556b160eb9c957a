// A host in Vala, without a window: asks on the terminal, takes three samples and shares them.

bool start (Tarvex.Client client) {
    try {
        return client.start (Tarvex.Reader.AMBIENT_LIGHT, 1, null);
    } catch (Error error) {
        printerr ("%s\n", error.message);
        return false;
    }
}

async void share (Tarvex.Client client) {
    try {
        yield client.share_async (true);
    } catch (Error error) {
        printerr ("%s\n", error.message);
    }
}

int main () {
    var loop = new MainLoop ();
    var client = Tarvex.Client.get_default ();
    client.application_id = "org.tarvex.ValaHost";
    client.notify["count"].connect (() => {
        print ("%s samples\n", client.count.to_string ());
        if (client.count < 3) return;
        client.stop_all ();
        share.begin (client, () => loop.quit ());
    });
    var request = new Tarvex.ConsentRequest ("Light Study", "Why we ask.", { Tarvex.Reader.AMBIENT_LIGHT }, null);
    request.decided.connect ((consented) => {
        if (!consented || !start (client)) loop.quit ();
    });
    try {
        if (!start (client)) {
            print ("May Light Study measure the ambient light? (y/n) ");
            if (stdin.getc () == 'y') request.consent ();
            else request.cancel ();
        }
    } catch (Error error) {
        printerr ("%s\n", error.message);
        return 1;
    }
    loop.run ();
    return 0;
}

"""What hosts in Python do wrong, and what they may rely on: one case each time, in a process of its own.

usage: python_host_test.py CASE     (G_DEBUG=fatal-criticals: a critical message that no case expects ends it)
"""

import gc
import os
import subprocess
import sys
import tempfile
import threading
import weakref

import gi

gi.require_version("Tarvex", "0")
gi.require_version("TarvexTesting", "0")
from gi.repository import Gio, GLib, Tarvex, TarvexTesting

LIGHT = Tarvex.Reader.AMBIENT_LIGHT
loop = GLib.MainLoop()
client = Tarvex.Client.get_default()


def run_until(holds):
    late = GLib.timeout_add_seconds(20, lambda: sys.exit("it never became so"))
    again = GLib.timeout_add(10, lambda: True)
    while not holds():
        loop.get_context().iteration(True)
    GLib.source_remove(late)
    GLib.source_remove(again)


def run_until_gone(*references):
    """The thread that has brought an answer lets go of it a moment later."""

    def are_gone():
        gc.collect()
        return not any(reference() for reference in references)

    run_until(are_gone)


def expect_error(domain, code, act, *arguments):
    try:
        act(*arguments)
    except GLib.Error as error:
        assert error.matches(domain, code), error
    else:
        raise AssertionError("no error")


def expect_raised(exception, act, *arguments):
    try:
        act(*arguments)
    except exception:
        return
    raise AssertionError(f"no {exception}")


def expect_critical(part, act, *arguments):
    GLib.test_expect_message("Tarvex", GLib.LogLevelFlags.LEVEL_CRITICAL, f"*{part}*")
    result = act(*arguments)
    GLib.test_assert_expected_messages_internal("Tarvex", __file__, 0, part)
    return result


class Host:
    """A sensor and a backend in this process."""

    def __init__(self):
        self.data = tempfile.TemporaryDirectory()
        client.props.application_id = "org.tarvex.PythonTest"
        client.props.data_directory = self.data.name
        self.sensor = TarvexTesting.LightSensor.new(client)
        self.backend = TarvexTesting.Backend.new(client)

    def consent(self):
        answers = []
        request = Tarvex.ConsentRequest.new(None, None, [LIGHT], None)
        request.connect("decided", lambda request, consented: answers.append(consented))
        request.consent()
        run_until(lambda: answers)
        assert answers == [True] and client.has_consented(LIGHT)


def wrong_arguments():
    host = Host()
    for reader in (7, None):
        expect_raised(TypeError, client.start, reader, 1, None)
    expect_raised(TypeError, client.start, LIGHT, 1, client)
    expect_raised(TypeError, Tarvex.ConsentRequest.new, None, None, [7], None)
    assert expect_critical("no absolute URL", Tarvex.ConsentRequest.new, None, None, [], "nowhere").props.link is None
    assert Tarvex.ConsentRequest.new("a", "b", [LIGHT], None).get_readers() == [LIGHT]
    assert not os.listdir(host.data.name), "nothing of it used the library"
    assert Tarvex.Client().props.application_id == "org.tarvex.PythonTest"


def raising_callbacks():
    host = Host()
    raised = []
    sys.excepthook = lambda kind, value, trace: raised.append(str(value))

    def fail(*arguments):
        raise RuntimeError("out of a callback")

    request = Tarvex.ConsentRequest.new(None, None, [LIGHT], None)
    request.connect("decided", fail)
    request.consent()
    run_until(lambda: len(raised) == 1)
    handler = client.connect("notify::count", fail)
    client.start(LIGHT, 1, None)
    run_until(lambda: len(raised) == 3)
    client.disconnect(handler)
    client.stop_all()
    client.share_async(True, fail)
    run_until(lambda: len(raised) == 4)
    assert set(raised) == {"out of a callback"} and client.props.count == 0 and len(host.backend.get_documents()) == 1


def dropped_objects():
    host = Host()
    host.consent()

    class Asking:
        def __init__(self):
            self.request = Tarvex.ConsentRequest.new(None, None, [LIGHT], None)
            self.request.connect("decided", self.decided)

        def decided(self, request, consented):
            answers.append(consented)

    # In a circle with its handler, and dropped: it is answered, and then it goes.
    answers = []
    asking = Asking()
    asking.request.consent()
    owner, request = weakref.ref(asking), weakref.ref(asking.request)
    del asking
    run_until(lambda: answers)
    run_until_gone(owner, request)
    # Never asked.
    run_until_gone(weakref.ref(Asking()))

    class Sharing:
        def share(self):
            client.share_async(True, self.shared)
            return weakref.ref(self)

        def shared(self, client, result):
            answers.append(client.share_finish(result))

    host.backend.props.holding = True
    sharing = Sharing().share()
    gc.collect()
    run_until(lambda: len(host.backend.get_documents()) == 1)
    host.backend.props.holding = False
    run_until(lambda: len(answers) == 2)
    assert answers[1] is True
    run_until_gone(sharing)


def other_threads():
    host = Host()
    host.consent()
    outcomes = []

    def shared(client, result):
        expect_error(Tarvex.host_error_quark(), Tarvex.HostError.WRONG_THREAD, client.share_finish, result)
        outcomes.append(threading.current_thread())

    def work():
        request = Tarvex.ConsentRequest.new(None, None, [LIGHT], None)
        for press in (request.consent, request.cancel):
            expect_error(Tarvex.host_error_quark(), Tarvex.HostError.WRONG_THREAD, press)
        client.share_async(True, shared)
        assert client.start(LIGHT, 1, None) and client.in_progress(LIGHT)
        worked.append(client.get_count())

    worked = []
    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
    assert worked == [0]
    run_until(lambda: outcomes and client.props.count > 1)  # ticks come on the main loop
    assert outcomes == [threading.main_thread()] and not host.backend.get_documents()


def application_of(identifier):
    """The child of two_applications: consents, and prints its document."""
    application = Gio.Application(application_id=identifier)
    backend = TarvexTesting.Backend.new(client)
    print("had consented:", client.has_consented(LIGHT))
    answers = []
    request = Tarvex.ConsentRequest.new(None, None, [LIGHT], None)
    request.connect("decided", lambda request, consented: answers.append(consented))
    request.consent()
    run_until(lambda: answers)
    client.share_async(False, lambda client, result: answers.append(client.share_finish(result)))
    run_until(lambda: len(answers) == 2)
    print(backend.get_documents()[0], application.get_application_id())


def two_applications():
    with tempfile.TemporaryDirectory() as home:
        outputs = [
            subprocess.run([sys.executable, __file__, "application_of", name], env={**os.environ, "XDG_DATA_HOME": home},
                           check=True, capture_output=True, text=True).stdout
            for name in ("org.tarvex.First", "org.tarvex.Second", "org.tarvex.First")
        ]
    said = [output.splitlines()[0].removeprefix("had consented: ") for output in outputs]
    assert said == ["False", "False", "True"], outputs
    users = [output.split('"userId":"')[1].split('"')[0] for output in outputs]
    assert users[0] == users[2] != users[1], users


def exit_with_upload(is_answered=True):
    host = Host()
    host.consent()
    client.connect("notify::count", lambda *arguments: None)
    client.start(LIGHT, 1, None)
    host.backend.props.holding = True
    for _ in range(2):
        client.share_async(True, lambda client, result: print("called back"))
    Tarvex.ConsentRequest.new(None, None, [LIGHT], None).consent()
    run_until(lambda: len(host.backend.get_documents()) == 2)
    if is_answered:
        host.backend.props.holding = False  # while the interpreter ends


def exit_with_upload_that_is_never_answered():
    exit_with_upload(is_answered=False)


globals()[sys.argv[1]](*sys.argv[2:])

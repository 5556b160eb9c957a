// What hosts in JavaScript do wrong, and what they may rely on: one case each time, in a process of its own.
// usage: gjs -m javascript_host_test.js CASE
//        (G_DEBUG=fatal-criticals: a critical message that no case expects ends it; gjs logs what callbacks throw as one)

import Gio from 'gi://Gio';
import GLib from 'gi://GLib';
import System from 'system';
import Tarvex from 'gi://Tarvex?version=0';
import TarvexTesting from 'gi://TarvexTesting?version=0';

Gio._promisify(Tarvex.Client.prototype, 'share_async', 'share_finish');
const LIGHT = Tarvex.Reader.AMBIENT_LIGHT;
const client = Tarvex.Client.get_default();
const context = GLib.MainContext.default();

function expect(holds, what) {
    if (!holds) throw new Error(`failed: ${what}`);
}

function runUntil(holds) {
    const late = GLib.timeout_add_seconds(GLib.PRIORITY_DEFAULT, 20, () => System.exit(1));
    while (!holds()) context.iteration(true);
    GLib.source_remove(late);
}

function expectThrown(act, matches) {
    try {
        act();
    } catch (error) {
        return expect(matches(error), error.message);
    }
    throw new Error('nothing was thrown');
}

function expectCritical(part, act) {
    GLib.test_expect_message('Tarvex', GLib.LogLevelFlags.LEVEL_CRITICAL, `*${part}*`);
    const result = act();
    GLib.test_assert_expected_messages_internal('Tarvex', 'javascript_host_test.js', 0, part);
    return result;
}

function makeHost() {
    client.application_id = 'org.tarvex.JavaScriptTest';
    client.data_directory = `${GLib.getenv('TARVEX_TEST_DIRECTORY')}/data`;
    return {sensor: TarvexTesting.LightSensor.new(client), backend: TarvexTesting.Backend.new(client)};
}

function consent() {
    let answer = null;
    const request = Tarvex.ConsentRequest.new(null, null, [LIGHT], null);
    request.connect('decided', (_, consented) => (answer = consented));
    request.consent();
    runUntil(() => answer !== null);
    expect(answer && client.has_consented(LIGHT), 'consent');
}

const cases = {
    wrongUse() {
        expectThrown(() => client.start(LIGHT, 1, null),
            error => error.matches(Tarvex.HostError, Tarvex.HostError.NO_APPLICATION_ID));
        makeHost();
        for (const [reader, view] of [[7, null], [LIGHT, client]])
            expectThrown(() => client.start(reader, 1, view), error => !(error instanceof GLib.Error));
        expect(expectCritical('no absolute URL',
            () => Tarvex.ConsentRequest.new(null, null, [], 'nowhere')).link === null, 'no link');
        expect(new Tarvex.Client() === client, 'one client');
        expectThrown(() => client.start(LIGHT, 1, null),
            error => error.matches(Tarvex.Error, Tarvex.Error.NO_CONSENT_TO_TRACK));
    },

    raisingCallbacks() {
        const {backend} = makeHost();
        let called = 0;
        const fail = () => {
            ++called;
            throw new Error('out of a callback');
        };
        const request = Tarvex.ConsentRequest.new(null, null, [LIGHT], null);
        request.connect('decided', fail);
        request.consent();
        runUntil(() => called === 1);
        const handler = client.connect('notify::count', fail);
        client.start(LIGHT, 1, null);
        runUntil(() => called === 3);
        client.disconnect(handler);
        client.stop_all();
        client.share_async(true, fail);
        runUntil(() => called === 4);
        expect(client.count === 0 && backend.get_documents().length === 1, 'it goes on');
    },

    droppedObjects() {
        const {backend} = makeHost();
        consent();
        let answers = 0;
        (() => {
            const request = Tarvex.ConsentRequest.new(null, null, [LIGHT], null);
            request.circle = () => request;
            request.connect('decided', () => (answers += 1 + 0 * request.circle().n_readers));
            request.consent();
        })();
        System.gc();
        runUntil(() => answers === 1 || Number.isNaN(answers));
        backend.holding = true;
        (() => client.share_async(true).then(() => (answers = 'shared')))();
        System.gc();
        runUntil(() => backend.get_documents().length === 1);
        backend.holding = false;
        runUntil(() => answers === 'shared');
        System.gc();
    },

    exitWithUpload() {
        const {backend} = makeHost();
        consent();
        client.start(LIGHT, 1, null);
        client.connect('notify::count', () => {});
        backend.holding = true;
        client.share_async(true).then(() => print('called back'));
        client.share_async(true).then(() => print('called back'));
        Tarvex.ConsentRequest.new(null, null, [LIGHT], null).consent();
        runUntil(() => backend.get_documents().length === 2);
        backend.holding = false; // the answers come while the interpreter ends
    },
};

cases[ARGV[0]]();

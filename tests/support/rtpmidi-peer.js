// An independent network MIDI peer for the tests: the npm package `rtpmidi` (installed by
// scripts/install-deps) run by node. It prints what happens, one line each, for the test to read:
//   node rtpmidi-peer.js play OWN-PORT HOST-PORT NOTE...
//     invites the session on 127.0.0.1:HOST-PORT, waits until its clock exchange lets it send,
//     plays the notes together for 300 ms ("played"), then stays until it is stopped.
//   node rtpmidi-peer.js hold OWN-PORT HOST-PORT NOTE...
//     the same, but the notes are never ended ("holding" once they are sent).
//   node rtpmidi-peer.js listen OWN-PORT
//     waits for an invitation; prints "joined NAME" and every message received ("received 90 3c 64").
// SIGTERM ends the session with a goodbye ("ended"); SIGKILL makes it vanish without one.

const { Session } = require('rtpmidi');

const [mode, ownPort, hostPort, ...notes] = process.argv.slice(2);
const say = (line) => process.stdout.write(`${line}\n`);

// Not published over mDNS: the tests must not depend on a daemon.
const session = new Session(Number(ownPort), 'Node peer', 'Node peer', undefined, false);
session.on('streamAdded', ({ stream }) => say(`joined ${stream.name.replace(/\0+$/, '')}`));
session.on('streamRemoved', ({ stream }) => say(`left ${stream.name.replace(/\0+$/, '')}`));
session.on('message', (delta, message) => {
  say(`received ${Array.from(message, (b) => b.toString(16).padStart(2, '0')).join(' ')}`);
});
session.start();

if (mode === 'play' || mode === 'hold') {
  session.connect({ address: '127.0.0.1', port: Number(hostPort) });
  // A stream sends nothing before its own clock exchange has measured the latency.
  const waitForClock = setInterval(() => {
    const stream = session.getStreams()[0];
    if (!stream || stream.latency === null || stream.timeDifference === null) return;
    clearInterval(waitForClock);
    // Its one-argument form is broken: a time stamp and an array it is.
    const send = (message) => session.sendMessage(session.now() + session.startTime, message);
    notes.forEach((note) => send([0x90, Number(note), 100]));
    if (mode === 'hold') {
      say('holding');
      return;
    }
    setTimeout(() => {
      notes.forEach((note) => send([0x80, Number(note), 0]));
      say('played');
    }, 300);
  }, 50);
}

process.on('SIGTERM', () => {
  session.end(() => {
    say('ended');
    process.exit(0);
  });
  setTimeout(() => process.exit(0), 1000);
});

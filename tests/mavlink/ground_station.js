// ground_station.js PORT [brief] [real-time]: a ground station written with npm's node-mavlink. It listens on
// 127.0.0.1:PORT, finds the camera, asks what it can do, drags, clicks, stops, and ends with 0 when all was as it should
// be. brief: without the parts that take long.
//
// The camera's time is handed to it with TIMESYNC, so that what takes how long does not depend on the machine; with
// real-time the machine's clock counts, and the figures are those of this machine.
const dgram = require('dgram');
const { PassThrough } = require('stream');
const { createMavLinkStream, MavLinkProtocolV2 } = require('node-mavlink');
const { minimal, common } = require('mavlink-mappings');

const port = Number(process.argv[2]);
const brief = process.argv.includes('brief');
const realTime = process.argv.includes('real-time');
const registry = { ...minimal.REGISTRY, ...common.REGISTRY };
const protocol = new MavLinkProtocolV2(255, 190);
const socket = dgram.createSocket('udp4');
const input = new PassThrough();
const heard = [];
const failures = [];
let peer = null;
let sequence = 0;

const machine = () => Number(process.hrtime.bigint()) / 1e6;
let handed = 0n;  // nanoseconds: the camera's time
const now = () => (realTime || handed === 0n ? machine() : Number(handed / 1000n) / 1e3);
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const check = (holds, what) => {
  console.log(`${holds ? 'ok  ' : 'FAIL'} ${what}`);
  if (!holds) failures.push(what);
};

socket.on('message', (bytes, from) => {
  peer = from;
  input.write(bytes);
});
createMavLinkStream(input).on('data', (packet) => {
  const kind = registry[packet.header.msgid];
  if (kind) heard.push({ at: now(), header: packet.header, name: kind.MSG_NAME, data: packet.protocol.data(packet.payload, kind) });
});

// Hands the camera another time, and waits until it has done what was due by then. Gives when the newest frame was taken
// whose turn is over.
async function handOver(ms) {
  handed += BigInt(Math.round(ms * 1e6));
  const request = new common.TimeSync();
  request.tc1 = 0n;
  request.ts1 = handed;
  const end = machine() + 30000;
  for (let ask = 0; machine() < end;) {
    if (machine() >= ask) {
      socket.send(protocol.serialize(request, sequence++ & 255), peer.port, peer.address);
      ask = machine() + 200;
    }
    const answered = heard.findIndex((m) => m.name === 'TIMESYNC' && m.data.tc1 !== 0n && m.data.ts1 === handed);
    if (answered >= 0) return heard.splice(answered, 1)[0].data.tc1;
    await pause(1);
  }
  throw new Error('the camera does not answer to TIMESYNC');
}

// Lets time go by.
async function pass(ms) {
  if (realTime) return pause(ms);
  for (let left = ms; left > 0; left -= 4) await handOver(Math.min(left, 4));
}

// Waits until the camera has done what it was asked for. It takes orders once in a frame's turn, at a time of the
// machine's: on a busy one that may be long after their acknowledgement. What is taken in one turn is done by the next.
async function turns() {
  if (realTime) return pause(400);
  const end = machine() + 60000;
  for (let before = await handOver(0), over = 0; over < 2 && machine() < end;) {
    await pause(20);
    const newest = await handOver(0);  // or an answer from before, where the question had to be repeated
    if (newest <= before) continue;
    before = newest;
    ++over;
  }
}

// Waits for a message; in real time for `ms`, else as long as it takes the camera, whose time stands still while it is
// at work on a frame: only a part of the machine's time is handed over.
async function waitFor(test, ms) {
  const find = () => heard.find(test);
  if (handed === 0n || realTime) {
    for (const end = machine() + ms; machine() < end; await pause(2)) if (find()) return find();
    return null;
  }
  for (const end = handed + BigInt(ms) * 1000000n; handed < end && !find();) {
    await handOver(2);
    if (!find()) await pause(50);
  }
  return find() || null;
}

function command(number, parameters, confirmation = 0) {
  const message = new common.CommandLong();
  message.targetSystem = 1;
  message.targetComponent = 100;
  message.command = number;
  message.confirmation = confirmation;
  for (let i = 1; i <= 7; ++i) message[`_param${i}`] = parameters[i - 1] ?? 0;
  return protocol.serialize(message, sequence++ & 255);
}

// Sends and waits for the acknowledgement. Gives how long it took, and the time it was sent.
async function order(number, parameters) {
  const sent = now();
  heard.length = 0;
  socket.send(command(number, parameters), peer.port, peer.address);
  const ack = await waitFor((m) => m.name === 'COMMAND_ACK' && m.data.command === number, 3000);
  return { sent, took: ack ? ack.at - sent : NaN, result: ack ? ack.data.result : -1 };
}

async function rate(ms) {
  heard.length = 0;
  await pass(ms);
  return (heard.filter((m) => m.name === 'CAMERA_TRACKING_IMAGE_STATUS').length * 1000) / ms;
}

async function main() {
  await new Promise((resolve) => socket.bind(port, '127.0.0.1', resolve));
  const beat = await waitFor((m) => m.name === 'HEARTBEAT' && m.header.compid === 100, 60000);
  check(beat && beat.data.type === minimal.MavType.CAMERA, 'a camera is found by its heartbeat');
  if (!beat) return;
  handed = process.hrtime.bigint();
  if (!realTime) await handOver(0);

  let answer = await order(512, [259]);
  const information = await waitFor((m) => m.name === 'CAMERA_INFORMATION', 1000);
  check(answer.result === 0 && information, 'it says what it can do');
  const flags = information ? information.data.flags : 0;
  check((flags & 512) !== 0 && (flags & 1024) !== 0, 'points and rectangles can be tracked');
  await order(2504, [1]);
  const stream = await waitFor((m) => m.name === 'VIDEO_STREAM_INFORMATION', 1000);
  check(stream && stream.data.uri.startsWith('rtsp://127.0.0.1:8554/track'), 'it says where the video is');

  if (!brief) {
    const slow = await rate(4000);
    check(Math.abs(slow - 5) <= 0.5, `status comes 5 times a second (${slow})`);
    answer = await order(511, [275, 40000]);
    const fast = await rate(4000);
    check(answer.result === 0 && Math.abs(fast - 25) <= 2.5, `status comes 25 times a second (${fast})`);
  }

  answer = await order(2005, [0.4, 0.4, 0.6, 0.6]);
  check(answer.result === 0 && answer.took <= 100, `a drag is acknowledged within 100 ms (${answer.took.toFixed(1)})`);
  const status = (value) => (m) => m.name === 'CAMERA_TRACKING_IMAGE_STATUS' && m.data.trackingStatus === value;
  const first = await waitFor(status(1), 3000);
  check(first && first.at - answer.sent <= 200, `the first status comes within 200 ms (${first ? (first.at - answer.sent).toFixed(1) : '?'})`);
  check(first && first.data.recTopX >= 0 && first.data.recBottomX <= 1 && Number.isNaN(first.data.pointX),
        'it has a rectangle and no point');

  answer = await order(2004, [0.5, 0.5, 0.1]);
  check(answer.result === 0 && await waitFor(status(1), 3000), 'a click is tracked');
  answer = await order(2010, []);
  check(answer.result === 0 && await waitFor(status(0), 3000), 'a stop stops');
  answer = await order(2004, [2.5, 0.5, 0.1]);
  check(answer.result === 2, 'a click beside the picture is refused');

  if (brief) return;
  // A stranger's datagrams change nothing.
  const stranger = dgram.createSocket('udp4');
  await new Promise((resolve) => stranger.bind(0, '127.0.0.1', resolve));
  heard.length = 0;
  stranger.send(command(2004, [0.5, 0.5, 0.1]), peer.port, peer.address);
  await pass(600);
  check(!heard.some((m) => m.name === 'COMMAND_ACK') && !heard.some(status(1)), 'a stranger cannot command');
  stranger.close();

  // Loss, copies and reordering on the way to the camera: what was asked last is what holds in the end.
  let drawn = 12345;
  const draw = () => (drawn = (drawn * 1103515245 + 12345) % 2147483648) / 2147483648;
  let late = [];
  for (let i = 0; i < 12; ++i) {
    const wish = i % 2 === 0 ? [2005, [0.3 + i / 100, 0.3, 0.6, 0.6]] : [2010, []];
    let acknowledged = false;
    for (let attempt = 0; attempt < 10 && !acknowledged; ++attempt) {
      const bytes = command(wish[0], wish[1], attempt);
      heard.length = 0;
      if (draw() >= 0.4) socket.send(bytes, peer.port, peer.address);
      if (draw() < 0.2) socket.send(bytes, peer.port, peer.address);
      if (draw() < 0.2) late.push(bytes);
      acknowledged = (await waitFor((m) => m.name === 'COMMAND_ACK' && m.data.command === wish[0], 60)) !== null;
    }
    for (const bytes of late) socket.send(bytes, peer.port, peer.address);
    late = [];
    if (!acknowledged) check(false, `command ${i} is acknowledged in the end`);
  }
  await turns();
  heard.length = 0;
  await pass(400);
  const said = heard.filter((m) => m.name === 'CAMERA_TRACKING_IMAGE_STATUS').map((m) => m.data.trackingStatus);
  check(said.length > 0 && said.every((value) => value === 0),
        `after loss, copies and reordering the last command holds (${said})`);
}

main().then(() => {
  socket.close();
  console.log(failures.length === 0 ? 'all as it should be' : `${failures.length} failures`);
  process.exit(failures.length === 0 ? 0 : 1);
});
setTimeout(() => { console.error('ground station: it takes too long'); process.exit(1); }, 240000).unref();

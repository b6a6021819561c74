// ground_station.js PORT [brief]: a ground station written with npm's node-mavlink. It listens on 127.0.0.1:PORT,
// finds the camera, asks what it can do, drags, clicks, stops, and ends with 0 when all was as it
// should be. brief: without the parts that take long.
const dgram = require('dgram');
const { PassThrough } = require('stream');
const { createMavLinkStream, MavLinkProtocolV2 } = require('node-mavlink');
const { minimal, common } = require('mavlink-mappings');

const port = Number(process.argv[2]);
const brief = process.argv[3] === 'brief';
const registry = { ...minimal.REGISTRY, ...common.REGISTRY };
const protocol = new MavLinkProtocolV2(255, 190);
const socket = dgram.createSocket('udp4');
const input = new PassThrough();
const heard = [];
const failures = [];
let peer = null;
let sequence = 0;

const now = () => Number(process.hrtime.bigint()) / 1e6;
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

async function waitFor(test, ms) {
  for (const end = now() + ms; now() < end; await pause(2)) {
    const found = heard.find(test);
    if (found) return found;
  }
  return null;
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
  await pause(ms);
  return (heard.filter((m) => m.name === 'CAMERA_TRACKING_IMAGE_STATUS').length * 1000) / ms;
}

async function main() {
  await new Promise((resolve) => socket.bind(port, '127.0.0.1', resolve));
  const beat = await waitFor((m) => m.name === 'HEARTBEAT' && m.header.compid === 100, 20000);
  check(beat && beat.data.type === minimal.MavType.CAMERA, 'a camera is found by its heartbeat');
  if (!beat) return;

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
  check(answer.result === 0, `a drag is acknowledged (after ${answer.took.toFixed(1)} ms)`);
  const status = (value) => (m) => m.name === 'CAMERA_TRACKING_IMAGE_STATUS' && m.data.trackingStatus === value;
  const first = await waitFor(status(1), 3000);
  check(first, `the first status comes (after ${first ? (first.at - answer.sent).toFixed(1) : '?'} ms)`);
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
  await pause(600);
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
      if (draw() >= 0.1) socket.send(bytes, peer.port, peer.address);
      if (draw() < 0.2) socket.send(bytes, peer.port, peer.address);
      if (draw() < 0.2) late.push(bytes);
      acknowledged = (await waitFor((m) => m.name === 'COMMAND_ACK' && m.data.command === wish[0], 400)) !== null;
    }
    for (const bytes of late) socket.send(bytes, peer.port, peer.address);
    late = [];
    if (!acknowledged) check(false, `command ${i} is acknowledged in the end`);
  }
  await pause(400);
  heard.length = 0;
  const last = await waitFor((m) => m.name === 'CAMERA_TRACKING_IMAGE_STATUS', 1000);
  check(last && last.data.trackingStatus === 0, 'after loss, copies and reordering the last command holds');
}

main().then(() => {
  socket.close();
  console.log(failures.length === 0 ? 'all as it should be' : `${failures.length} failures`);
  process.exit(failures.length === 0 ? 0 : 1);
});
setTimeout(() => { console.error('ground station: it takes too long'); process.exit(1); }, 60000).unref();

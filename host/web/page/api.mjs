// How the page speaks to the program. Every request goes to where the page came from.

/// What the program refused: `message` is its sentence, `status` the number, `faults` what is wrong with single keys.
export class Refusal extends Error {
  constructor(status, body) {
    super(body.error || 'the program answered ' + status);
    this.status = status;
    this.faults = body.faults || [];
  }
}

async function bodyOf(response) {
  try { return await response.json(); } catch { return {}; }
}

export async function ask(path) {
  const response = await fetch(path, { cache: 'no-store' });
  const body = await bodyOf(response);
  if (!response.ok) throw new Refusal(response.status, body);
  return body;
}

export async function order(path, what) {
  const response = await fetch(path, { method: 'POST', body: JSON.stringify(what), cache: 'no-store',
                                       headers: { 'Content-Type': 'application/json', 'X-Csrt-Track': '1' } });
  const body = await bodyOf(response);
  if (!response.ok) throw new Refusal(response.status, body);
  return body;
}

/// A file that the program makes: { blob, name }.
export async function fetchFile(path) {
  const response = await fetch(path, { cache: 'no-store' });
  if (!response.ok) throw new Refusal(response.status, await bodyOf(response));
  const name = /filename="([^"]+)"/.exec(response.headers.get('Content-Disposition') || '');
  return { blob: await response.blob(), name: name ? name[1] : 'csrt-track' };
}

/// What a JPEG says about itself in the comment behind its first mark, as JSON; null where there is none.
export function commentOf(bytes) {
  if (bytes.length < 6 || bytes[0] !== 0xFF || bytes[1] !== 0xD8 || bytes[2] !== 0xFF || bytes[3] !== 0xFE) return null;
  const length = bytes[4] * 256 + bytes[5];
  return JSON.parse(new TextDecoder().decode(bytes.subarray(6, 4 + length)));
}

/// The next picture after number `after`, and what is known: { state, picture, frame }. Without a picture when none came
/// for a while or only something else changed.
export async function nextFrame(after, signal) {
  const response = await fetch('/frame?after=' + after, { cache: 'no-store', signal });
  if (!response.ok) throw new Refusal(response.status, await bodyOf(response));
  if (!response.headers.get('Content-Type').startsWith('image/')) return { state: await response.json(), picture: null };
  const bytes = new Uint8Array(await response.arrayBuffer());
  const picture = await createImageBitmap(new Blob([bytes], { type: 'image/jpeg' }));
  return { state: commentOf(bytes), picture, frame: +response.headers.get('Csrt-Frame') };
}

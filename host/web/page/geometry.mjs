// Where a place on the screen lies in the picture, and back. Pure: no page is touched here, so that it can be tried alone.
// Pixels of the picture are counted from its top-left corner; a place may lie between two of them.

/// The picture inside a stage of other proportions: as large as it fits, in the middle, bars on two sides.
/// @param frame  { width, height } of the picture, pixels
/// @param stage  { left, top, width, height } on the screen, as getBoundingClientRect() has it
/// @return { left, top, scale }: the picture's corner on the screen, screen pixels per pixel of the picture
export function fit(frame, stage) {
  const scale = Math.min(stage.width / frame.width, stage.height / frame.height);
  return { left: stage.left + (stage.width - frame.width * scale) / 2,
           top: stage.top + (stage.height - frame.height * scale) / 2, scale };
}

/// A place on the screen in pixels of the picture; `inside` says whether it lies on the picture and not on a bar.
export function toFrame(place, frame, stage) {
  const view = fit(frame, stage);
  const x = (place.x - view.left) / view.scale, y = (place.y - view.top) / view.scale;
  return { x, y, inside: x >= 0 && y >= 0 && x <= frame.width && y <= frame.height };
}

/// The nearest place on the picture.
export function clamped(point, frame) {
  return { x: Math.min(Math.max(point.x, 0), frame.width), y: Math.min(Math.max(point.y, 0), frame.height) };
}

/// The box between two places, as [left, top, width, height] in whole pixels inside the picture. At least 1 x 1.
export function boxBetween(from, to, frame) {
  const a = clamped(from, frame), b = clamped(to, frame);
  const left = Math.min(Math.round(Math.min(a.x, b.x)), frame.width - 1);
  const top = Math.min(Math.round(Math.min(a.y, b.y)), frame.height - 1);
  const right = Math.max(Math.round(Math.max(a.x, b.x)), left + 1), bottom = Math.max(Math.round(Math.max(a.y, b.y)), top + 1);
  return [left, top, right - left, bottom - top];
}

/// A box moved and resized about its middle, inside the picture and at least 4 x 4.
export function adjusted(box, change, frame) {
  const width = Math.min(Math.max(box[2] + (change.wider || 0), 4), frame.width);
  const height = Math.min(Math.max(box[3] + (change.higher || 0), 4), frame.height);
  const left = Math.round(box[0] + box[2] / 2 + (change.x || 0) - width / 2);
  const top = Math.round(box[1] + box[3] / 2 + (change.y || 0) - height / 2);
  return [Math.min(Math.max(left, 0), frame.width - width), Math.min(Math.max(top, 0), frame.height - height), width, height];
}

/// Whether a box holds a place.
export function holds(box, point) {
  return point.x >= box[0] && point.y >= box[1] && point.x <= box[0] + box[2] && point.y <= box[1] + box[3];
}

/// Whether a press was a tap: it moved so little that nobody meant a box. Fingers tremble more than mice.
export function isTap(from, to, touch) {
  return Math.hypot(to.x - from.x, to.y - from.y) < (touch ? 12 : 5);
}

// The map's coast lines and borders: world.bin, made by tools/collector/make-world. And how the globe lies on it.

const LATEST = 85.05;  // degrees; beyond it the map (Mercator's) ends

export const x = (lon) => lon / 360 + 0.5;

export function y(lat) {
  const angle = (Math.max(-LATEST, Math.min(LATEST, lat)) * Math.PI) / 180;
  return 0.5 - Math.log(Math.tan(Math.PI / 4 + angle / 2)) / (2 * Math.PI);
}

export const lonOf = (at) => (at - 0.5) * 360;
export const latOf = (at) => (Math.atan(Math.exp((0.5 - at) * 2 * Math.PI)) * 360) / Math.PI - 90;

/** The whole map's width in metres, along that latitude. */
export const girth = (lat) => 40075017 * Math.cos((Math.max(-LATEST, Math.min(LATEST, lat)) * Math.PI) / 180);

/** Lines {points, west, east, north, south}, in parts of the map's width, and names {x, y, rank, text}. */
export function unpacked(buffer) {
  const bytes = new Uint8Array(buffer);
  if (new TextDecoder().decode(bytes.subarray(0, 4)) !== "KXW1") throw new Error("world.bin is of another kind");
  let at = 4;
  const number = () => {
    let value = 0;
    for (let shift = 0; ; shift += 7) {
      const byte = bytes[at++];
      value |= (byte & 127) << shift;
      if (byte < 128) return value;
    }
  };
  const signed = () => {
    const value = number();
    return value & 1 ? -((value + 1) >> 1) : value >> 1;
  };
  const lines = () => Array.from({ length: number() }, () => {
    const points = new Float64Array(number() * 2);
    let lon = 0;
    let lat = 0;
    const line = { points, west: 1, east: 0, north: 1, south: 0 };
    for (let index = 0; index < points.length; index += 2) {
      points[index] = x((lon += signed()) / 100);
      points[index + 1] = y((lat += signed()) / 100);
      line.west = Math.min(line.west, points[index]);
      line.east = Math.max(line.east, points[index]);
      line.north = Math.min(line.north, points[index + 1]);
      line.south = Math.max(line.south, points[index + 1]);
    }
    return line;
  });
  const coasts = lines();
  const borders = lines();
  const names = Array.from({ length: number() }, () => {
    const name = { x: x(signed() / 100), y: y(signed() / 100), rank: number() };
    const length = number();
    name.text = new TextDecoder().decode(bytes.subarray(at, (at += length)));
    return name;
  });
  return { coasts, borders, names };
}

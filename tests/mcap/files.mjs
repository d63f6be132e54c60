// SPDX-License-Identifier: Apache-2.0
// What the checks read: MCAP files through the readers of others, and the tool's PCD files.
import assert from "node:assert/strict";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";

import { parse } from "@foxglove/rosmsg";
import { MessageReader } from "@foxglove/rosmsg2-serialization";
import { McapIndexedReader, McapStreamReader } from "@mcap/core";
import { loadDecompressHandlers, protobufFromBinaryDescriptor } from "@mcap/support";

export const decompressHandlers = await loadDecompressHandlers();

/// All records of the bytes, as far as they go, checksums compared.
export function stream(bytes) {
  const reader = new McapStreamReader({ decompressHandlers, validateCrcs: true });
  reader.append(bytes);
  const records = { Message: [], Channel: [], Schema: [], Attachment: [], Metadata: [], Header: [], Footer: [] };
  for (let record; (record = reader.nextRecord()) !== undefined; ) {
    (records[record.type] ??= []).push(record);
  }
  return { ...records, done: reader.done(), left: reader.bytesRemaining() };
}

export function indexed(bytes) {
  const readable = {
    size: async () => BigInt(bytes.length),
    read: async (offset, size) => bytes.subarray(Number(offset), Number(offset + size)),
  };
  return McapIndexedReader.Initialize({ readable, decompressHandlers });
}

/// Where each whole chunk ends, from the records' own lengths.
export function chunkEnds(bytes) {
  const ends = [];
  for (let at = 8; at + 9 <= bytes.length; ) {
    const end = at + 9 + Number(bytes.readBigUInt64LE(at + 1));
    if (bytes[at] === 6 && end <= bytes.length) ends.push(end);
    at = end;
  }
  return ends;
}

/// A function that turns a message of the file into an object.
export function decoder({ Channel, Schema }) {
  const byChannel = new Map();
  for (const { id, schemaId } of Channel) {
    const { name, encoding, data } = Schema.find((schema) => schema.id === schemaId);
    if (encoding === "protobuf") {
      const type = protobufFromBinaryDescriptor(data).lookupType(name);
      byChannel.set(id, (message) => type.toObject(type.decode(message), { longs: Number, defaults: true }));
    } else {
      assert.equal(encoding, "ros2msg");
      const reader = new MessageReader(parse(new TextDecoder().decode(data), { ros2: true }));
      byChannel.set(id, (message) => reader.readMessage(message));
    }
  }
  return ({ channelId, data }) => byChannel.get(channelId)(data);
}

/// Points as [x, y, z, intensity, ring, time] of either kind of cloud.
export function points(cloud) {
  const proto = cloud.point_stride !== undefined;
  const step = proto ? cloud.point_stride : cloud.point_step;
  const data = Buffer.from(cloud.data.buffer, cloud.data.byteOffset, cloud.data.byteLength);
  const [uint16, float32] = proto ? [3, 7] : [4, 7];
  const at = {};
  for (const { name, offset, type, datatype } of cloud.fields) {
    assert.equal(type ?? datatype, name === "ring" ? uint16 : float32, `type of ${name}`);
    at[name] = offset;
  }
  if (!proto) {
    assert.equal(cloud.row_step, cloud.width * step);
    assert.equal(cloud.data.length, cloud.height * cloud.row_step);
    assert.equal(cloud.is_bigendian, false);
  }
  const floats = ["x", "y", "z", "intensity"].map((name) => at[name]);
  const all = [];
  for (let base = 0; base < data.length; base += step) {
    const point = floats.map((offset) => data.readFloatLE(base + offset));
    point.push(data.readUInt16LE(base + at.ring), data.readFloatLE(base + at.time));
    all.push(point);
  }
  return { all, step };
}

/// Points of the folder's PCD files as [x, y, z, intensity, label, timestamp], frame by frame.
export function pcdFrames(folder) {
  return readdirSync(folder).filter((name) => name.endsWith(".pcd")).sort().map((name) => {
    const bytes = readFileSync(join(folder, name));
    const head = "DATA binary\n";
    const all = [];
    for (let at = bytes.indexOf(head) + head.length; at < bytes.length; at += 28) {
      const point = [0, 4, 8, 12].map((offset) => bytes.readFloatLE(at + offset));
      all.push([...point, bytes.readUInt32LE(at + 16), bytes.readDoubleLE(at + 20)]);
    }
    return all;
  });
}

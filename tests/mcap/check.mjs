// SPDX-License-Identifier: Apache-2.0
// check.mjs whole FILE [--pcd FOLDER] [--calib FOLDER] [--imu CSV] [--step BYTES]   a complete file
// check.mjs cut FILE                                    the file, cut off at many places
// check.mjs broken FILE CLOUDS [--pcd FOLDER]           a file without an end, and at least so many clouds in it
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { basename, join } from "node:path";
import { parseArgs } from "node:util";

import { crc32 } from "@foxglove/crc";

import { chunkEnds, decoder, indexed, pcdFrames, points, stream } from "./files.mjs";

const seconds = (stamp) => (stamp.sec ?? stamp.seconds) + (stamp.nanosec ?? stamp.nsec ?? stamp.nanos) * 1e-9;
const isOrigin = ([x, y, z]) => x === 0 && y === 0 && z === 0;

/// Every coordinate, bit for bit: floats of both files are the same doubles here.
function compareClouds(clouds, frames) {
  for (const [k, cloud] of clouds.entries()) {
    const { all, step } = points(cloud);
    const dropped = cloud.is_dense ?? all.length !== frames[k].length;
    const wanted = dropped ? frames[k].filter((point) => !isOrigin(point)) : frames[k];
    assert.equal(all.length, wanted.length, `points of cloud ${k}`);
    const rows = all.length === 24576 && !cloud.point_stride && !dropped ? 192 : undefined;  // of a whole grid
    assert.equal(rows ?? cloud.height, cloud.height, "rows");
    const stamp = seconds(cloud.header?.stamp ?? cloud.timestamp);
    for (const [i, [x, y, z, intensity, label, timestamp]] of wanted.entries()) {
      const coordinates = isOrigin([x, y, z]) ? [NaN, NaN, NaN] : [x, y, z];
      const time = timestamp === 0 ? 0 : Math.fround(timestamp - stamp);
      const same = [...coordinates, intensity, label, time].every((value, n) => Object.is(value, all[i][n]));
      assert.ok(same, `cloud ${k}, point ${i} of ${step} bytes: ${all[i]} instead of ${[x, y, z, intensity, label, time]}`);
    }
  }
}

function checkImu(samples, csv) {
  for (const sample of samples) {
    assert.equal(sample.orientation_covariance[0], -1);
    assert.ok(Math.abs(Math.hypot(...Object.values(sample.linear_acceleration)) - 9.81) < 5, "m/s^2");
  }
  if (csv === undefined) return;
  const lines = readFileSync(csv, "utf8").trim().split("\n").slice(1).map((line) => line.split(",").map(Number));
  assert.equal(samples.length, lines.length, "IMU samples");
  for (const [i, { header, angular_velocity: w, linear_acceleration: a }] of samples.entries()) {
    const [time, ...values] = lines[i];
    assert.ok(Math.abs(seconds(header.stamp) - time) < 1e-6, "IMU stamp");
    assert.deepEqual([w.x, w.y, w.z, a.x, a.y, a.z].map(Math.fround), values.map(Math.fround));
  }
}

async function collect(generator) {
  const all = [];
  for await (const message of generator) all.push(message);
  return all;
}

const key = ({ channelId, sequence, logTime, data }) => `${channelId} ${sequence} ${logTime} ${crc32(data)}`;

/// The indexed reader gives what the streaming one gave: in order of time, backwards, by time, by topic.
async function checkIndexed(bytes, streamed) {
  const reader = await indexed(bytes);
  assert.equal(crc32(bytes.subarray(0, Number(reader.dataEndOffset))), reader.dataSectionCrc, "checksum of the data");
  const forward = await collect(reader.readMessages({ validateCrcs: true }));
  assert.deepEqual(forward.map(key).sort(), streamed.Message.map(key).sort());
  assert.ok(forward.every(({ logTime }, i) => i === 0 || logTime >= forward[i - 1].logTime), "order of time");
  const backward = await collect(reader.readMessages({ reverse: true }));
  assert.deepEqual(backward.map(({ logTime }) => logTime).reverse(), forward.map(({ logTime }) => logTime));
  assert.deepEqual(backward.map(key).sort(), forward.map(key).sort());
  const [startTime, endTime] = [1, 2].map((third) => forward[Math.floor((forward.length * third) / 3)].logTime);
  const middle = forward.filter(({ logTime }) => logTime >= startTime && logTime <= endTime);
  assert.deepEqual((await collect(reader.readMessages({ startTime, endTime }))).map(key), middle.map(key));
  const clouds = await collect(reader.readMessages({ topics: ["/points"] }));
  const { id } = streamed.Channel.find(({ topic }) => topic === "/points");
  assert.equal(clouds.length, streamed.Message.filter(({ channelId }) => channelId === id).length);
  assert.equal(reader.statistics.messageCount, BigInt(forward.length));
  assert.equal((await collect(reader.readAttachments({ validateCrcs: true }))).length, streamed.Attachment.length);
  assert.equal((await collect(reader.readMetadata())).length, 1);
  assert.ok(reader.summaryOffsetsByOpcode.size >= 5 && reader.chunkIndexes.length === chunkEnds(bytes).length);
}

function byTopic(streamed) {
  const decode = decoder(streamed);
  const topics = Object.fromEntries(streamed.Channel.map(({ topic }) => [topic, []]));
  for (const message of streamed.Message) {
    assert.ok(message.logTime > 0n);
    topics[streamed.Channel.find(({ id }) => id === message.channelId).topic].push(decode(message));
  }
  return topics;
}

async function whole(path, { pcd, calib, imu, step }) {
  const bytes = readFileSync(path);
  const streamed = stream(bytes);
  assert.ok(streamed.done && streamed.left === 0, "the file is complete");
  await checkIndexed(bytes, streamed);
  const topics = byTopic(streamed);
  if (step !== undefined) assert.equal(points(topics["/points"][0]).step, Number(step));
  if (pcd !== undefined) {
    const frames = pcdFrames(pcd);
    assert.equal(topics["/points"].length, frames.length, "clouds");
    compareClouds(topics["/points"], frames);
  }
  checkImu(topics["/imu/data_raw"] ?? [], imu);
  const status = topics["/diagnostics"].map(({ status: [one] }) => one);
  assert.ok(status.length >= 2 && status.every(({ level, values }) => level <= 3 && values.length > 10));
  const [{ metadata }] = streamed.Metadata;
  assert.deepEqual([...metadata.keys()].sort(), ["calibrated", "model", "unit", "version"]);
  assert.ok(streamed.Channel.every((channel) => channel.metadata.size === 0), "no QoS profiles");
  assert.equal(streamed.Attachment.length > 0, calib !== undefined);
  for (const { name, data } of streamed.Attachment) {
    assert.ok(Buffer.from(data).equals(readFileSync(join(calib, basename(name)))), name);
  }
  const counts = Object.entries(topics).map(([topic, all]) => `${all.length} of ${topic}`);
  console.log(`${path}: ${counts.join(", ")}; ${streamed.Attachment.length} attachments`);
}

/// What a reader gets of the first `size` bytes: the messages of the chunks that are whole.
function checkCut(bytes, size, ends, messagesUpTo) {
  const chunks = ends.filter((end) => end <= size).length;
  assert.equal(stream(bytes.subarray(0, size)).Message.length, messagesUpTo[chunks], `cut at ${size}`);
}

function cut(path) {
  const bytes = readFileSync(path);
  const ends = chunkEnds(bytes);
  const messagesUpTo = [0, ...ends.map((end) => stream(bytes.subarray(0, end)).Message.length)];
  assert.ok(ends.length > 3 && messagesUpTo.every((count, i) => i === 0 || count > messagesUpTo[i - 1]));
  for (const end of ends) [end - 1, end, end + 1].forEach((size) => checkCut(bytes, size, ends, messagesUpTo));
  for (let i = 0, random = 1; i < 1000; ++i) {
    random = (Math.imul(random, 1664525) + 1013904223) >>> 0;
    checkCut(bytes, Math.floor((random / 2 ** 32) * bytes.length), ends, messagesUpTo);
  }
  console.log(`${path}: readable up to each of ${3 * ends.length + 1000} cuts, ${ends.length} chunks`);
}

function broken(path, least, { pcd }) {
  const bytes = readFileSync(path);
  const streamed = stream(bytes);
  assert.ok(!streamed.done, "has no end");
  const clouds = byTopic(streamed)["/points"];
  assert.ok(clouds.length >= Number(least), `${clouds.length} clouds, ${least} wanted`);
  const sealed = chunkEnds(bytes).at(-1);
  assert.equal(stream(bytes.subarray(0, sealed)).Message.length, streamed.Message.length, "whole chunks");
  if (pcd !== undefined) compareClouds(clouds, pcdFrames(pcd));
  console.log(`${path}: ${clouds.length} clouds can be read`);
}

const text = { type: "string" };
const options = { pcd: text, calib: text, imu: text, step: text };
const { positionals: [mode, file, least], values } = parseArgs({ allowPositionals: true, options });
await { whole: () => whole(file, values), cut: () => cut(file), broken: () => broken(file, least, values) }[mode]();

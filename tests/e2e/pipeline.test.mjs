// Keeps a real photo, a video with speech and two screenshots of one page through the engine's pipeline
// (the fake model service as its own process), then finds them through keepery-mcp with the official MCP
// client, as an assistant would.
import { test, before, after } from "node:test";
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdirSync, mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import { startModelService } from "./modelService.mjs";

const server = process.env.KEEPERY_MCP;
const fakeModelService = process.env.FAKE_MODEL_SERVICE;
const keepLibrary = process.env.KEEP_LIBRARY;
assert.ok(server, "KEEPERY_MCP names the keepery-mcp executable");
assert.ok(fakeModelService, "FAKE_MODEL_SERVICE names the fake model service program");
assert.ok(keepLibrary, "KEEP_LIBRARY names the program that keeps media through the pipeline");

let home;
let service;
let client;
let kept;

before(async () => {
  home = mkdtempSync(join(tmpdir(), "keepery-pipeline-"));
  const root = join(home, ".local", "share", "Keepery");
  const work = join(home, "work");
  mkdirSync(root, { recursive: true });
  mkdirSync(work, { recursive: true });
  let port;
  ({ child: service, port } = await startModelService(fakeModelService));
  const env = {
    HOME: home, PATH: process.env.PATH ?? "/usr/bin:/bin", OLLAMA_HOST: `127.0.0.1:${port}`,
    LANG: "en_US.UTF-8", TZ: "UTC",
  };
  // Rendering the screenshots leaves fontconfig's caches to the end of the process; a sanitizer build
  // would count them as leaks.
  const run = spawnSync(keepLibrary, [root, work],
    { encoding: "utf8", env: { ...env, ASAN_OPTIONS: "detect_leaks=0" }, timeout: 480_000 });
  assert.equal(run.status, 0, run.stderr);
  kept = JSON.parse(run.stdout);

  const transport = new StdioClientTransport({ command: server, args: [], env, stderr: "pipe" });
  client = new Client({ name: "keepery-pipeline-e2e", version: "1.0.0" });
  await client.connect(transport);
});

after(async () => {
  await client?.close();
  service?.kill();
  rmSync(home, { recursive: true, force: true });
});

async function text(name, args) {
  const result = await client.callTool({ name, arguments: args });
  assert.ok(!result.isError, result.content[0].text);
  return result.content[0].text;
}

test("every kept item is processed to the end without a failure", () => {
  assert.deepEqual(kept.errors, []);
  assert.equal(kept.pending, 0);
});

test("each kept item is found by its words", async () => {
  // The photo's and the video's file names become their titles; the page's words were read off it; the
  // video's speech was transcribed.
  assert.match(await text("search_keepery", { query: "lighthouse" }), new RegExp(`id ${kept.photo} `));
  assert.match(await text("search_keepery", { query: "garden tour" }), new RegExp(`id ${kept.video} `));
  const page = await text("search_keepery", { query: "tide tables" });
  for (const id of kept.screens) {
    assert.match(page, new RegExp(`id ${id} `));
  }
  const video = await text("get_capture", { id: kept.video });
  assert.match(video, /Said in it:\n.*garden/i);
});

test("each kept item is found by meaning where its words fail", async () => {
  // No capture holds "zeppelin", so the words find nothing; the vectors still point at the item.
  assert.match(await text("search_keepery", { query: "lighthouse zeppelin" }), new RegExp(`id ${kept.photo} `));
  assert.match(await text("search_keepery", { query: "garden tour zeppelin" }), new RegExp(`id ${kept.video} `));
  assert.match(await text("search_keepery", { query: "tide tables harbour zeppelin" }),
    new RegExp(`id ${kept.screens[0]} `));
});

test("the two captures of one page formed a named collection", async () => {
  const collections = await text("list_collections", {});
  const match = collections.match(/^(\S+) (.+) — 2 captures \(id ([0-9a-f-]{36})\)$/u);
  assert.ok(match, collections);
  assert.notEqual(match[2], "New collection");
  const members = await text("recent_captures", { collection: match[3] });
  for (const id of kept.screens) {
    assert.match(members, new RegExp(`id ${id} `));
  }
});

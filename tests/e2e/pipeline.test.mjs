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

const { KEEPERY_MCP: server, FAKE_MODEL_SERVICE: fakeModelService, KEEP_LIBRARY: keepLibrary } = process.env;
assert.ok(server && fakeModelService && keepLibrary,
  "KEEPERY_MCP, FAKE_MODEL_SERVICE and KEEP_LIBRARY name keepery-mcp, the fake model service and the keeper");

let home;
let service;
let client;
let kept;

before(async () => {
  home = mkdtempSync(join(tmpdir(), "keepery-pipeline-"));
  const root = join(home, ".local", "share", "Keepery");
  mkdirSync(root, { recursive: true });
  mkdirSync(join(home, "work"));
  let port;
  ({ child: service, port } = await startModelService(fakeModelService));
  const env = {
    HOME: home, PATH: process.env.PATH ?? "/usr/bin:/bin", OLLAMA_HOST: `127.0.0.1:${port}`,
    LANG: "en_US.UTF-8", TZ: "UTC",
  };
  // Rendering the screenshots leaves fontconfig's caches to the end of the process; a sanitizer build
  // would count them as leaks.
  const run = spawnSync(keepLibrary, [root, join(home, "work")],
    { encoding: "utf8", env: { ...env, ASAN_OPTIONS: "detect_leaks=0" }, timeout: 480_000 });
  assert.equal(run.status, 0, run.stderr);
  kept = JSON.parse(run.stdout);

  client = new Client({ name: "keepery-pipeline-e2e", version: "1.0.0" });
  await client.connect(new StdioClientTransport({ command: server, args: [], env, stderr: "pipe" }));
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

test("each kept item is found by its words, and by meaning where its words fail", async () => {
  // The photo's and the video's file names become their titles; the page's words were read off it; the
  // video's speech was transcribed. No capture holds "zeppelin": the vectors still point at the item.
  const queries = [
    ["lighthouse", [kept.photo]], ["garden tour", [kept.video]], ["tide tables", kept.screens],
    ["lighthouse zeppelin", [kept.photo]], ["garden tour zeppelin", [kept.video]],
    ["tide tables harbour zeppelin", [kept.screens[0]]],
  ];
  for (const [query, ids] of queries) {
    const found = await text("search_keepery", { query });
    for (const id of ids) {
      assert.match(found, new RegExp(`id ${id} `), query);
    }
  }
  assert.match(await text("get_capture", { id: kept.video }), /Said in it:\n.*garden/i);
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

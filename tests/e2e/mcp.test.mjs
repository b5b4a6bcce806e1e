// Drives the real keepery-mcp executable through the official MCP client library, as an assistant would.
import { test, before, after } from "node:test";
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import { startModelService } from "./modelService.mjs";

const server = process.env.KEEPERY_MCP;
const fakeModelService = process.env.FAKE_MODEL_SERVICE;
const seedLibrary = process.env.SEED_LIBRARY;
assert.ok(server, "KEEPERY_MCP names the keepery-mcp executable");
assert.ok(fakeModelService, "FAKE_MODEL_SERVICE names the fake model service program");
assert.ok(seedLibrary, "SEED_LIBRARY names the program that writes a library");

// 2024-03-03 17:14 UTC; the server runs in United States English on UTC.
const march3 = 1709486040;
const at514 = "Mar 3, 2024, 5:14\u202fPM";

const library = {
  collections: [{ id: "c1", name: "Weeknight Cooking", emoji: "🍳" }],
  captures: [
    {
      id: "ramen", createdAt: march3, app: "Firefox", windowTitle: "Ramen — Serious Eats",
      url: "https://www.seriouseats.com/tonkotsu-ramen", title: "Tonkotsu ramen at home",
      summary: "A two-day pork broth.", kind: "recipe", tags: ["ramen", "noodles"],
      highlights: ["Blanch the bones first."], links: ["https://www.seriouseats.com/tonkotsu-ramen"],
      ocrText: "Blanch the bones first. Simmer twelve hours.", embed: "tonkotsu ramen pork broth noodles",
      collection: "c1",
    },
    {
      id: "pasta", createdAt: march3 - 3600, media: "photo", title: "Lemon pasta",
      summary: "Pasta with lemon and parmesan.", kind: "recipe", embed: "lemon pasta butter", collection: "c1",
    },
    {
      id: "curry", createdAt: march3 - 7200, media: "video", windowTitle: "Curry", duration: 42.9, takenAt: march3 - 86400,
      transcript: "Fry the onions until golden.", embed: "curry onions golden", collection: "c1",
    },
    {
      id: "diff", createdAt: march3 - 10800, app: "Code", windowTitle: "main.cpp", title: "A failing diff",
      kind: "code", embed: "compiler error diff", organized: false,
    },
  ],
};

let home;
let service;
let client;

before(async () => {
  home = mkdtempSync(join(tmpdir(), "keepery-e2e-"));
  const root = join(home, ".local", "share", "Keepery");
  mkdirSync(root, { recursive: true });
  const description = join(home, "library.json");
  writeFileSync(description, JSON.stringify(library));
  const seeded = spawnSync(seedLibrary, [root, description], { encoding: "utf8" });
  assert.equal(seeded.status, 0, seeded.stderr);

  let port;
  ({ child: service, port } = await startModelService(fakeModelService));
  const transport = new StdioClientTransport({
    command: server,
    args: [],
    env: {
      HOME: home, PATH: process.env.PATH ?? "/usr/bin:/bin", OLLAMA_HOST: `127.0.0.1:${port}`,
      LANG: "en_US.UTF-8", TZ: "UTC",
    },
    stderr: "pipe",
  });
  client = new Client({ name: "keepery-e2e", version: "1.0.0" });
  await client.connect(transport);
});

after(async () => {
  await client?.close();
  service?.kill();
  rmSync(home, { recursive: true, force: true });
});

async function text(name, args) {
  const result = await client.callTool({ name, arguments: args });
  assert.equal(result.content.length, 1);
  assert.equal(result.content[0].type, "text");
  return { text: result.content[0].text, isError: result.isError };
}

test("initialize reports the server and its instructions, and ping answers", async () => {
  const info = client.getServerVersion();
  assert.equal(info.name, "keepery");
  assert.match(info.version, /^\d+\.\d+\.\d+$/);
  assert.deepEqual(client.getServerCapabilities(), { tools: { listChanged: false } });
  assert.match(client.getInstructions(), /^Keepery is the user's keepery book/);
  assert.deepEqual(await client.ping(), {});
});

test("the four tools are listed in order with their schemas", async () => {
  const { tools } = await client.listTools();
  assert.deepEqual(
    tools.map((t) => t.name),
    ["search_keepery", "recent_captures", "get_capture", "list_collections"],
  );
  assert.deepEqual(tools.map((t) => t.inputSchema.required), [["query"], undefined, ["id"], undefined]);
  for (const tool of tools) {
    assert.deepEqual(Object.keys(tool).sort(), ["description", "inputSchema", "name"]);
  }
});

test("a tool the server does not have comes back as a tool error, not a protocol error", async () => {
  const result = await client.callTool({ name: "no_such_tool", arguments: {} });
  assert.equal(result.isError, true);
  assert.deepEqual(result.content, [{ type: "text", text: "Unknown tool no_such_tool." }]);
});

const ramenListing = [
  "Tonkotsu ramen at home — Recipes",
  `id ramen · https://www.seriouseats.com/tonkotsu-ramen · ${at514} · 🍳 Weeknight Cooking`,
  "A two-day pork broth.",
  "Tags: noodles, ramen",
].join("\n");

test("search_keepery finds by words and by meaning and renders listings", async () => {
  const byWords = await text("search_keepery", { query: "  tonkotsu  ", limit: 1 });
  assert.deepEqual(byWords, { text: `Keepery for “tonkotsu” (1):\n\n${ramenListing}`, isError: false });

  // "butter" is no word of the pasta capture's indexed text; only its vectors know it.
  const byMeaning = await text("search_keepery", { query: "lemon butter" });
  assert.match(byMeaning.text, /^Keepery for “lemon butter” \(\d+\):\n\nLemon pasta — Recipes\nid pasta · Photos · /);
});

test("recent_captures lists newest first, by collection name in any case or by kind", async () => {
  const recent = await text("recent_captures", { limit: 2 });
  assert.equal(recent.text.split("\n\n").length, 2);
  assert.ok(recent.text.startsWith(ramenListing + "\n\nLemon pasta — Recipes\n"));

  const cooking = await text("recent_captures", { collection: "WEEKNIGHT COOKING", kind: "nonsense" });
  assert.deepEqual(cooking.text.split("\n\n").map((l) => l.split("\n")[0]),
    ["Tonkotsu ramen at home — Recipes", "Lemon pasta — Recipes", "Curry — Videos"]);

  const code = await text("recent_captures", { kind: "Code" });
  assert.match(code.text, /^A failing diff — Code\nid diff · Code · /);
  assert.deepEqual(await text("recent_captures", { collection: "Desserts" }),
    { text: "No collection named “Desserts”. list_collections shows them.", isError: true });
});

test("get_capture opens one capture in full", async () => {
  const ramen = await text("get_capture", { id: "ramen" });
  assert.deepEqual(ramen, {
    text: [
      ramenListing,
      "Worth keeping:\n“Blanch the bones first.”",
      "Links:\nhttps://www.seriouseats.com/tonkotsu-ramen",
      "Text on it:\nBlanch the bones first. Simmer twelve hours.",
    ].join("\n\n"),
    isError: false,
  });
  const curry = await text("get_capture", { id: "curry" });
  assert.match(curry.text, /\n\nVideo, 42 seconds\.\n\nSaid in it:\nFry the onions until golden\.$/);
  assert.match(curry.text, new RegExp(`· Mar 2, 2024, 5:14\u202fPM · 🍳 Weeknight Cooking\n`));
  const diff = await text("get_capture", { id: "diff" });
  assert.ok(diff.text.endsWith("\n\n(Still being read: the description may be incomplete.)"));
  assert.deepEqual(await text("get_capture", { id: 7 }), { text: "No capture with that id.", isError: true });
});

test("list_collections shows each collection with its count", async () => {
  assert.deepEqual(await text("list_collections", {}),
    { text: "🍳 Weeknight Cooking — 3 captures (id c1)", isError: false });
});

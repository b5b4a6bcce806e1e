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

const { KEEPERY_MCP: server, FAKE_MODEL_SERVICE: fakeModelService, SEED_LIBRARY: seedLibrary } = process.env;
assert.ok(server && fakeModelService && seedLibrary,
  "KEEPERY_MCP, FAKE_MODEL_SERVICE and SEED_LIBRARY name keepery-mcp, the fake model service and the seeder");

// 2024-03-03 17:14 UTC; the server runs in United States English on UTC.
const march3 = 1709486040;
const library = {
  collections: [{ id: "c1", name: "Weeknight Cooking", emoji: "🍳" }],
  captures: [
    {
      id: "ramen", createdAt: march3, app: "Firefox", windowTitle: "Ramen — Serious Eats",
      url: "https://www.seriouseats.com/tonkotsu-ramen", title: "Tonkotsu ramen at home",
      summary: "A two-day pork broth.", kind: "recipe", tags: ["ramen", "noodles"],
      embed: "tonkotsu ramen pork broth noodles", collection: "c1",
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
  writeFileSync(join(home, "library.json"), JSON.stringify(library));
  const seeded = spawnSync(seedLibrary, [root, join(home, "library.json")], { encoding: "utf8" });
  assert.equal(seeded.status, 0, seeded.stderr);

  let port;
  ({ child: service, port } = await startModelService(fakeModelService));
  const env = {
    HOME: home, PATH: process.env.PATH ?? "/usr/bin:/bin", OLLAMA_HOST: `127.0.0.1:${port}`,
    LANG: "en_US.UTF-8", TZ: "UTC",
  };
  client = new Client({ name: "keepery-e2e", version: "1.0.0" });
  await client.connect(new StdioClientTransport({ command: server, args: [], env, stderr: "pipe" }));
});

after(async () => {
  await client?.close();
  service?.kill();
  rmSync(home, { recursive: true, force: true });
});

async function call(name, args) {
  const { content, isError } = await client.callTool({ name, arguments: args });
  assert.deepEqual(content.map((c) => c.type), ["text"]);
  return { text: content[0].text, isError };
}

test("the client connects, pings and lists the four tools in order", async () => {
  assert.equal(client.getServerVersion().name, "keepery");
  assert.match(client.getServerVersion().version, /^\d+\.\d+\.\d+$/);
  assert.deepEqual(await client.ping(), {});
  const { tools } = await client.listTools();
  assert.deepEqual(tools.map((t) => t.name),
    ["search_keepery", "recent_captures", "get_capture", "list_collections"]);
});

test("a tool answers as the assistant reads it, failures as tool errors", async () => {
  const listing = [
    "Tonkotsu ramen at home — Recipes",
    "id ramen · https://www.seriouseats.com/tonkotsu-ramen · Mar 3, 2024, 5:14\u202fPM · 🍳 Weeknight Cooking",
    "A two-day pork broth.",
    "Tags: noodles, ramen",
  ].join("\n");
  assert.deepEqual(await call("search_keepery", { query: "  tonkotsu  ", limit: 1 }),
    { text: `Keepery for “tonkotsu” (1):\n\n${listing}`, isError: false });
  assert.deepEqual(await call("get_capture", { id: 7 }), { text: "No capture with that id.", isError: true });
  assert.deepEqual(await call("no_such_tool", {}), { text: "Unknown tool no_such_tool.", isError: true });
});

// Drives the real keepery-mcp executable through the official MCP client library, as an assistant would.
import { test, before, after } from "node:test";
import assert from "node:assert/strict";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";

const server = process.env.KEEPERY_MCP;
assert.ok(server, "KEEPERY_MCP names the keepery-mcp executable");

let home;
let client;

before(async () => {
  home = mkdtempSync(join(tmpdir(), "keepery-e2e-"));
  const transport = new StdioClientTransport({
    command: server,
    args: [],
    env: { HOME: home, PATH: process.env.PATH ?? "/usr/bin:/bin", OLLAMA_HOST: "127.0.0.1:9" },
    stderr: "pipe",
  });
  client = new Client({ name: "keepery-e2e", version: "1.0.0" });
  await client.connect(transport);
});

after(async () => {
  await client?.close();
  rmSync(home, { recursive: true, force: true });
});

test("initialize reports the server and its instructions", () => {
  const info = client.getServerVersion();
  assert.equal(info.name, "keepery");
  assert.match(info.version, /^\d+\.\d+\.\d+$/);
  assert.deepEqual(client.getServerCapabilities(), { tools: { listChanged: false } });
  assert.match(client.getInstructions(), /^Keepery is the user's keepery book/);
});

test("ping answers", async () => {
  assert.deepEqual(await client.ping(), {});
});

test("the four tools are listed in order with their schemas", async () => {
  const { tools } = await client.listTools();
  assert.deepEqual(
    tools.map((t) => t.name),
    ["search_keepery", "recent_captures", "get_capture", "list_collections"],
  );
  const byName = Object.fromEntries(tools.map((t) => [t.name, t]));
  assert.deepEqual(byName.search_keepery.inputSchema.required, ["query"]);
  assert.equal(byName.search_keepery.inputSchema.properties.limit.type, "integer");
  assert.equal(byName.recent_captures.inputSchema.required, undefined);
  assert.match(byName.recent_captures.inputSchema.properties.kind.description, /^One of: article, code, .*, idea, other$/);
  assert.deepEqual(byName.get_capture.inputSchema.required, ["id"]);
  assert.deepEqual(byName.list_collections.inputSchema, { type: "object", properties: {} });
  for (const tool of tools) {
    assert.deepEqual(Object.keys(tool).sort(), ["description", "inputSchema", "name"]);
  }
});

test("a tool the server does not have comes back as a tool error, not a protocol error", async () => {
  const result = await client.callTool({ name: "no_such_tool", arguments: {} });
  assert.equal(result.isError, true);
  assert.deepEqual(result.content, [{ type: "text", text: "Unknown tool no_such_tool." }]);
});

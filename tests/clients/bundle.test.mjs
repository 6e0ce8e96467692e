// The Claude Desktop bundle: its manifest is valid, and what it starts is the server that it describes. ORVANE_BUNDLE
// is the file, ORVANE_RUNNER what starts Windows programs.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";

import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";

function mcpb(...args) {
  const cli = new URL("node_modules/.bin/mcpb", import.meta.url).pathname;
  return execFileSync(cli, args, { encoding: "utf8", timeout: 60000 });
}

test("the bundle is valid and starts the server with the tools that it names", { timeout: 110000 }, async (t) => {
  const folder = mkdtempSync(join(tmpdir(), "orvane-bundle-"));
  t.after(() => rmSync(folder, { recursive: true }));
  mcpb("unpack", process.env.ORVANE_BUNDLE, folder);
  assert.match(mcpb("validate", join(folder, "manifest.json")), /validation passes/);

  const manifest = JSON.parse(readFileSync(join(folder, "manifest.json"), "utf8"));
  const command = manifest.server.mcp_config.command.replace("${__dirname}", folder);
  assert.equal(command, join(folder, manifest.server.entry_point));
  const client = new Client({ name: "orvane-bundle-test", version: "1.0.0" });
  t.after(() => client.close());
  await client.connect(new StdioClientTransport({ command: process.env.ORVANE_RUNNER, args: [command],
    env: { ...process.env } }));
  const { tools } = await client.listTools();
  assert.deepEqual(manifest.tools.map((tool) => tool.name), tools.map((tool) => tool.name));
});

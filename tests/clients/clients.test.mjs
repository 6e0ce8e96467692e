// The launcher as third-party clients see it: the official SDK's client and the MCP Inspector's command line.
// ORVANE_PROGRAMS is the folder with the two programs, ORVANE_RUNNER what starts them ("wine", or nothing).
import assert from "node:assert/strict";
import { execFile, spawn } from "node:child_process";
import { once } from "node:events";
import { readFileSync } from "node:fs";
import { resolve } from "node:path";
import { after, test } from "node:test";
import { promisify } from "node:util";

import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import { Ajv } from "ajv";

const toolCount = readFileSync("docs/tools.md", "utf8").match(/^\| \[`/gm).length;
const options = { timeout: 180000 }; // milliseconds, against a hang alone
const client = new Client({ name: "orvane-client-tests", version: "1.0.0" });

function commandLine(program) {
  const [command, ...args] = [process.env.ORVANE_RUNNER, resolve(process.env.ORVANE_PROGRAMS, program)].filter(Boolean);
  return { command, args };
}

const { command, args } = commandLine("Orvane.exe");
const viewer = spawn(command, [...args, "demo/demo_board.orv"], { stdio: ["ignore", "pipe", "inherit"], ...options });
assert.match(String((await once(viewer.stdout, "data"))[0]), /^serving /);
viewer.stdout.resume();
await client.connect(new StdioClientTransport({ ...commandLine("orvane_mcp.exe"), env: process.env }));
// A child process left over would keep this one alive.
after(() => Promise.allSettled([client.close(), viewer.kill("SIGKILL") && once(viewer, "exit")]));

test("every tool is listed with a strict schema", options, async () => {
  const { tools } = await client.listTools();
  assert.equal(tools.length, toolCount);
  const ajv = new Ajv({ strict: true, strictTypes: false, allErrors: true });
  for (const { name, inputSchema } of tools) {
    const validate = ajv.compile(inputSchema);
    validate({ made_up: 1 });
    assert.match(ajv.errorsText(validate.errors), /must NOT have additional properties/, name);
  }
});

test("an unknown method is a protocol error, and the session goes on", options, async () => {
  await assert.rejects(client.listPrompts(), (error) => error.code === -32601 || /prompts/.test(error.message));
  const { content } = await client.callTool({ name: "get_board_state", arguments: {} });
  assert.match(content[0].text, /board/);
});

test("the Inspector's command line lists the tools and calls one", options, async () => {
  const cli = resolve("tests/clients/node_modules/@modelcontextprotocol/inspector/cli/build/cli.js");
  const { command, args } = commandLine("orvane_mcp.exe");
  const inspect = async (...words) => {
    const all = [cli, "--cli", command, ...args, "--method", ...words];
    return JSON.parse((await promisify(execFile)(process.execPath, all, { timeout: 60000 })).stdout);
  };
  assert.equal((await inspect("tools/list")).tools.length, toolCount);
  const selected = await inspect("tools/call", "--tool-name", "select_component", "--tool-arg", "refdes=PU2");
  assert.equal(selected.isError, false);
  assert.match(selected.content[0].text, /^ORVANE_FINAL/);
});

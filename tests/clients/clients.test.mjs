// The launcher as third-party clients see it: the official SDK's client and the MCP Inspector's command line.
// ORVANE_PROGRAMS is the folder with the two programs, ORVANE_RUNNER what starts them ("wine", or nothing).
import assert from "node:assert/strict";
import { execFile, spawn } from "node:child_process";
import { once } from "node:events";
import { copyFileSync, mkdtempSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { createInterface } from "node:readline";
import { after, before, describe, test } from "node:test";
import { promisify } from "node:util";

import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";
import { Ajv } from "ajv";

const programs = resolve(process.env.ORVANE_PROGRAMS);
const runner = process.env.ORVANE_RUNNER ? [process.env.ORVANE_RUNNER] : [];
const demo = resolve(import.meta.dirname ?? dirname(new URL(import.meta.url).pathname), "../../demo");
const timeout = 180000; // milliseconds, against a hang alone
const toolCount = 19; // demo/session.py calls each of them
const work = mkdtempSync(join(tmpdir(), "orvane-clients-"));

function commandLine(program, ...args) {
  const [command, ...rest] = [...runner, join(programs, program), ...args];
  return { command, args: rest };
}

/** Starts the demo viewer on a copy of its board and waits until it serves. Gives what ends it. */
async function startViewer() {
  for (const file of ["demo_board.orv", "demo_schematic.sch", "diagnostic_hints.yaml"]) {
    copyFileSync(join(demo, file), join(work, file));
  }
  const { command, args } = commandLine("Orvane.exe", "demo_board.orv");
  const viewer = spawn(command, args, { cwd: work, stdio: ["ignore", "pipe", "inherit"], timeout });
  const ended = once(viewer, "exit");
  const lines = createInterface({ input: viewer.stdout });
  const [line] = await Promise.race([once(lines, "line"), ended]);
  lines.on("line", () => {});
  assert.match(String(line), /^serving /);
  return () => viewer.kill("SIGKILL") && ended;
}

async function connect() {
  const client = new Client({ name: "orvane-client-tests", version: "1.0.0" });
  await client.connect(new StdioClientTransport({ ...commandLine("orvane_mcp.exe"), env: process.env, cwd: work }));
  return client;
}

describe("a viewer is running", { timeout }, () => {
  let client, stopViewer;
  before(async () => {
    stopViewer = await startViewer();
    client = await connect();
  });
  // A child process left over would keep this one alive.
  after(() => Promise.allSettled([client?.close(), stopViewer?.()]));

  test("every tool is listed with a strict schema", async () => {
    const { tools } = await client.listTools();
    assert.equal(tools.length, toolCount);
    const ajv = new Ajv({ strict: true, strictTypes: false, allErrors: true });
    for (const { name, inputSchema } of tools) {
      const validate = ajv.compile(inputSchema);
      validate({ made_up: 1 });
      assert.match(ajv.errorsText(validate.errors), /must NOT have additional properties/, name);
    }
  });

  test("an unknown method is a protocol error, and the session goes on", async () => {
    await assert.rejects(client.listPrompts(), (error) => error.code === -32601 || /prompts/.test(error.message));
    const { content } = await client.callTool({ name: "get_board_state", arguments: {} });
    assert.match(content[0].text, /board/);
  });

  test("the Inspector's command line lists the tools and calls one", async () => {
    const cli = createRequire(import.meta.url).resolve("@modelcontextprotocol/inspector/cli/build/cli.js");
    const { command, args } = commandLine("orvane_mcp.exe");
    const inspect = async (...more) => {
      const words = [cli, "--cli", command, ...args, ...more];
      const { stdout } = await promisify(execFile)(process.execPath, words, { cwd: work, timeout: 60000 });
      return JSON.parse(stdout);
    };
    assert.equal((await inspect("--method", "tools/list")).tools.length, toolCount);
    const selected = await inspect("--method", "tools/call", "--tool-name", "select_component", "--tool-arg", "refdes=PU2");
    assert.equal(selected.isError, false);
    assert.match(selected.content[0].text, /^ORVANE_FINAL/);
  });
});

// What a bridge on the official SDK would cost at the least: the tools of the file named by the first argument, and one
// constant answer to every call.
import { readFileSync } from "node:fs";

import { Server } from "@modelcontextprotocol/sdk/server/index.js";
import { StdioServerTransport } from "@modelcontextprotocol/sdk/server/stdio.js";
import { CallToolRequestSchema, ListToolsRequestSchema } from "@modelcontextprotocol/sdk/types.js";

const tools = JSON.parse(readFileSync(process.argv[2], "utf8"));
const server = new Server({ name: "peer", version: "1.0.0" }, { capabilities: { tools: {} } });
server.setRequestHandler(ListToolsRequestSchema, () => ({ tools }));
server.setRequestHandler(CallToolRequestSchema, () => ({ content: [{ type: "text", text: "OK" }], isError: false }));
await server.connect(new StdioServerTransport());

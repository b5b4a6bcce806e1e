// The fake model service as its own process, shared by the end-to-end tests.
import { spawn } from "node:child_process";
import { createInterface } from "node:readline";

// Starts `program` and resolves with the child and the loopback port it printed on its first line.
export function startModelService(program) {
  const child = spawn(program, [], { stdio: ["pipe", "pipe", "inherit"] });
  return new Promise((resolve, reject) => {
    child.once("error", reject);
    createInterface({ input: child.stdout }).once("line", (line) => resolve({ child, port: Number(line) }));
  });
}

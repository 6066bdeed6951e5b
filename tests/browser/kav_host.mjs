// Starts `kav-host serve` on a free loopback port for a test and stops it.
import { spawn } from "node:child_process";
import { once } from "node:events";

export const KAV_HOST = process.env.KAV_HOST ?? new URL("../../build/linux-x64-debug/kav-host", import.meta.url).pathname;

export async function startServer(extraArguments = []) {
  const child = spawn(KAV_HOST, ["serve", "--port", "0", ...extraArguments], {
    stdio: ["ignore", "pipe", "pipe"],
  });
  let output = "";
  child.stderr.on("data", (chunk) => { output += chunk; });
  const url = await new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error(`kav-host did not start:\n${output}`)), 30000);
    child.stdout.on("data", (chunk) => {
      output += chunk;
      const match = /listening on (http:\/\/127\.0\.0\.1:\d+\/)/.exec(output);
      if (match) {
        clearTimeout(timer);
        resolve(match[1]);
      }
    });
    child.on("exit", (code) => reject(new Error(`kav-host exited (${code}):\n${output}`)));
  });
  return {
    url,
    output: () => output,
    async stop() {
      if (child.exitCode !== null) return child.exitCode;
      child.kill("SIGTERM");
      const [code] = await once(child, "exit");
      return code;
    },
  };
}

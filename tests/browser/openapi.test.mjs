// The OpenAPI document that kav-host serve builds from the plugin's own
// description: valid for a real OpenAPI validator, listing every resource
// that the plugin serves, and describing the answers it really gives.
import { test } from "node:test";
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import SwaggerParser from "@apidevtools/swagger-parser";
import Ajv2020 from "ajv/dist/2020.js";
import { KAV_HOST, startServer } from "./kav_host.mjs";

test("the API document validates, lists every served resource and describes the answers", async () => {
  const server = await startServer();
  try {
    const response = await fetch(new URL("openapi.json", server.url));
    assert.equal(response.status, 200);
    const document = await response.json();

    // A real validator: structure, references, parameters.
    await SwaggerParser.validate(structuredClone(document));

    // Every resource of the plugin's resource table, as kav-host lists it.
    const summary = execFileSync(KAV_HOST, [], { encoding: "utf8" });
    const served = [...summary.matchAll(/^ {2}(GET|POST|PUT|DELETE|PATCH) +(\/\S+) +\((\w+)\)$/gm)];
    assert.ok(served.length >= 5, summary);
    for (const [, method, path, name] of served) {
      const operation = document.paths[path]?.[method.toLowerCase()];
      assert.ok(operation, `${method} ${path} is missing`);
      assert.equal(operation.operationId, name);
    }

    // The answers match their schemas.
    const ajv = new Ajv2020({ strict: false });
    ajv.addSchema({ $id: "openapi", components: document.components });
    const calls = [
      ["GET", "/kav-queue-eligibility/v1/initial-configuration-complete"],
      ["GET", "/kav-queue-eligibility/v3/eligibility?summonerIds=[1001,1002]&queueIds=[420,440,450]"],
      ["POST", "/kav-queue-eligibility/v2/eligibility", { summonerIds: [1001, 1003], queueIds: [420, 440] }],
      ["POST", "/kav-queue-eligibility/v1/eligibility", { summonerIds: [1001, 1004], queueIds: [450, 490] }],
      ["GET", "/kav-queue-eligibility/v3/custom?teamSize=-1&pickMode=BLIND"],
    ];
    for (const [method, target, body] of calls) {
      const path = target.split("?")[0];
      const schema = document.paths[path][method.toLowerCase()].responses["200"].content["application/json"].schema;
      const answer = await fetch(new URL(target.slice(1), server.url), {
        method,
        headers: body ? { "Content-Type": "application/json" } : {},
        body: body ? JSON.stringify(body) : undefined,
      });
      assert.equal(answer.status, 200, target);
      const value = await answer.json();
      const refs = JSON.parse(JSON.stringify(schema).replaceAll("#/components", "openapi#/components"));
      const validate = ajv.compile(refs);
      assert.ok(validate(value), `${target}: ${JSON.stringify(validate.errors)}`);
    }
  } finally {
    assert.equal(await server.stop(), 0);
  }
});

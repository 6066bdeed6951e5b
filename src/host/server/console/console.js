// kav-host console: tries the plugin's resources from /openapi.json, shows
// answers in words, streams /events, and edits the peers through /_host/.
// Everything it loads comes from the server that served it.
"use strict";

const QUEUES_PATH = "/kav-game-queues/v1/queues";
const GATEKEEPER_SWITCH =
  "/kav-platform-config/v1/namespaces/HvxLobby/QueueEligibilityGateKeeperEnabled";
const LIVE_LIMIT = 400;

const $ = (selector, root = document) => root.querySelector(selector);
const $$ = (selector, root = document) => Array.from(root.querySelectorAll(selector));

function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [key, value] of Object.entries(attributes)) {
    if (key === "class") node.className = value;
    else if (key === "text") node.textContent = value;
    else if (key.startsWith("on")) node.addEventListener(key.slice(2), value);
    else if (value !== undefined && value !== null) node.setAttribute(key, value);
  }
  for (const child of children) {
    if (child === null || child === undefined) continue;
    node.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return node;
}

const state = {
  document: null,
  operations: [],
  selected: null,
  world: null,
  queues: [],
};

// ---- Talking to the server ---------------------------------------------------

async function request(method, path, body) {
  const options = { method, headers: {} };
  if (body !== undefined) {
    options.body = typeof body === "string" ? body : JSON.stringify(body);
    options.headers["Content-Type"] = "application/json";
  }
  const started = performance.now();
  const response = await fetch(path, options);
  const text = await response.text();
  let json = null;
  try { json = text ? JSON.parse(text) : null; } catch (e) { json = null; }
  return {
    status: response.status,
    ok: response.ok,
    text,
    json,
    millis: performance.now() - started,
    monotonic: Number(response.headers.get("X-Host-Monotonic-Ms")) || null,
  };
}

function notice(message, isError = false) {
  const node = $("#peer-notice");
  node.textContent = message;
  node.className = isError ? "notice error" : "notice";
  node.hidden = false;
}

async function change(method, path, body, done) {
  const answer = await request(method, path, body);
  if (answer.ok) notice(done);
  else notice(answer.json && answer.json.message ? answer.json.message : answer.text, true);
  await refreshWorld();
  return answer;
}

// ---- Words for answers -------------------------------------------------------

function inWords(millis) {
  if (millis <= 0) return "ended";
  const seconds = Math.round(millis / 1000);
  if (seconds < 90) return `ends in ${seconds} s`;
  const minutes = Math.round(millis / 60000);
  if (minutes < 90) return `ends in ${minutes} min`;
  const hours = Math.floor(minutes / 60);
  if (hours < 48) return `ends in ${hours} h ${minutes % 60} min`;
  return `ends in ${Math.round(hours / 24)} days`;
}

function looksLikeEligibility(value) {
  return Array.isArray(value) && value.length > 0 &&
    value.every((item) => item && typeof item === "object" && "queueId" in item &&
      "eligible" in item && Array.isArray(item.restrictions));
}

function queueLabel(id) {
  const queue = state.queues.find((q) => q.id === id);
  return queue ? queue.type : "";
}

function renderRestriction(restriction, monotonic) {
  const details = [];
  const members = restriction.summonerIds || [];
  if (members.length) {
    details.push(el("div", { class: "detail" }, "members ",
      ...members.map((id) => el("span", { class: "chip", text: String(id) }))));
  }
  const args = restriction.restrictionArgs || {};
  for (const [key, value] of Object.entries(args)) {
    details.push(el("div", { class: "detail" }, `${key}: `, el("span", { class: "chip", text: value })));
  }
  if (restriction.expiredTimestamp) {
    const text = monotonic ? inWords(restriction.expiredTimestamp - monotonic)
                           : `ends at ${restriction.expiredTimestamp} ms`;
    details.push(el("div", { class: "expiry", text }));
  }
  return el("div", { class: "restriction" },
    el("div", { class: "code", text: restriction.restrictionCode }), ...details);
}

function renderEligibility(list, monotonic) {
  return el("div", { class: "queues" }, ...list.map((item) =>
    el("div", { class: `queue ${item.eligible ? "open" : "closed"}`, "data-queue": item.queueId },
      el("div", { class: "queue-head" },
        el("span", { class: "queue-id", text: String(item.queueId) }),
        el("span", { class: "muted", text: queueLabel(item.queueId) }),
        el("span", { class: "queue-state", text: item.eligible ? "eligible" : "closed" })),
      ...item.restrictions.map((r) => renderRestriction(r, monotonic)))));
}

function showAnswer(answer) {
  $("#answer").hidden = false;
  const badge = $("#answer-status");
  badge.textContent = String(answer.status);
  badge.className = answer.ok ? "badge" : "badge error";
  $("#answer-time").textContent = `${answer.millis.toFixed(1)} ms`;
  const view = $("#answer-view");
  view.replaceChildren();
  const value = answer.json;
  if (!answer.ok && value && value.message) {
    view.append(el("div", { class: "restriction" }, el("div", { class: "code", text: value.message })));
  } else if (looksLikeEligibility(value)) {
    view.append(renderEligibility(value, answer.monotonic));
  } else if (value !== null && typeof value !== "object") {
    view.append(el("div", { class: "scalar", text: JSON.stringify(value) }));
  } else {
    $("#answer-raw").checked = true;
  }
  $("#answer-json").textContent = value !== null ? JSON.stringify(value, null, 2) : answer.text;
  syncRawToggle();
}

function syncRawToggle() {
  const raw = $("#answer-raw").checked;
  $("#answer-json").hidden = !raw;
  $("#answer-view").hidden = raw;
}

// ---- Resources from the API document -----------------------------------------

function resolve(schema) {
  if (schema && schema.$ref) {
    const name = schema.$ref.split("/").pop();
    return state.document.components.schemas[name] || {};
  }
  return schema || {};
}

function example(schema, name, depth = 0) {
  schema = resolve(schema);
  if (depth > 4) return null;
  if (name && defaults()[name] !== undefined) return defaults()[name];
  if (schema.enum) return schema.enum[0];
  switch (schema.type) {
    case "array": return [];
    case "object": {
      const value = {};
      for (const [key, property] of Object.entries(schema.properties || {})) {
        value[key] = example(property, key, depth + 1);
      }
      return value;
    }
    case "integer": return 0;
    case "number": return 0;
    case "boolean": return false;
    case "string": return "";
    default: return null;
  }
}

// Starting values for well-known parameter names, taken from the world.
function defaults() {
  const self = state.world && state.world.currentSummoner;
  const open = state.queues.filter((q) => q.queueAvailability === "Available" && q.id > 0)
    .map((q) => q.id);
  const queues = [420, 440, 450].filter((id) => open.includes(id));
  return {
    summonerIds: self ? [self] : [],
    queueIds: queues.length ? queues : open.slice(0, 3),
    teamSize: 5,
    pickMode: "BLIND",
  };
}

function buildOperations(document) {
  const operations = [];
  for (const [path, item] of Object.entries(document.paths || {})) {
    for (const [method, operation] of Object.entries(item)) {
      operations.push({ path, method: method.toUpperCase(), operation });
    }
  }
  operations.sort((a, b) => a.path.localeCompare(b.path) || a.method.localeCompare(b.method));
  return operations;
}

function renderResourceList() {
  const list = $("#resource-list");
  list.replaceChildren();
  let group = "";
  for (const entry of state.operations) {
    const version = entry.path.split("/").slice(0, 3).join("/");
    if (version !== group) {
      group = version;
      list.append(el("li", { class: "group", text: version }));
      list.lastChild.style.cursor = "default";
    }
    const item = el("li", { "data-operation": entry.operation.operationId, onclick: () => select(entry) },
      el("span", { class: `method ${entry.method.toLowerCase()}`, text: entry.method }),
      el("span", { text: entry.path.slice(group.length) || entry.path }));
    list.append(item);
  }
}

function fieldFor(parameter) {
  const structured = !!parameter.content;
  const schema = structured ? parameter.content["application/json"].schema : parameter.schema;
  const start = defaults()[parameter.name];
  const input = el("input", {
    name: parameter.name,
    "data-in": parameter.in,
    placeholder: structured ? "JSON, e.g. [1, 2]" : (resolve(schema).type || "value"),
  });
  if (start !== undefined) input.value = structured ? JSON.stringify(start) : String(start);
  return el("div", { class: "field" },
    el("label", {}, parameter.name, el("span", { class: "where", text: parameter.in }),
      parameter.required ? " *" : ""),
    input);
}

function select(entry) {
  state.selected = entry;
  for (const item of $$("#resource-list li[data-operation]")) {
    item.classList.toggle("selected", item.dataset.operation === entry.operation.operationId);
  }
  const method = $("#try-method");
  method.textContent = entry.method;
  method.className = `method ${entry.method.toLowerCase()}`;
  $("#try-path").textContent = entry.path;
  $("#try-summary").textContent = entry.operation.description || entry.operation.summary || "";
  const fields = $("#try-fields");
  fields.replaceChildren();
  for (const parameter of entry.operation.parameters || []) fields.append(fieldFor(parameter));
  const body = entry.operation.requestBody;
  if (body) {
    const schema = body.content["application/json"].schema;
    const text = el("textarea", { name: "$body", rows: "5", spellcheck: "false" });
    text.value = JSON.stringify(example(schema), null, 2);
    fields.append(el("div", { class: "field wide" },
      el("label", {}, "body", el("span", { class: "where", text: "application/json" })), text));
  }
  updateUrl();
}

function currentUrl() {
  const entry = state.selected;
  if (!entry) return "";
  let path = entry.path;
  const query = [];
  for (const input of $$("#try-fields input")) {
    if (input.value === "") continue;
    if (input.dataset.in === "path") {
      path = path.replace(`{${input.name}}`, encodeURIComponent(input.value));
    } else if (input.dataset.in === "query") {
      query.push(`${encodeURIComponent(input.name)}=${encodeURIComponent(input.value)}`);
    }
  }
  return query.length ? `${path}?${query.join("&")}` : path;
}

function updateUrl() {
  $("#try-url").textContent = state.selected ? `${state.selected.method} ${currentUrl()}` : "";
}

async function send(event) {
  event.preventDefault();
  const entry = state.selected;
  if (!entry) return;
  const bodyField = $("#try-fields textarea[name='$body']");
  const options = { method: entry.method, headers: {} };
  for (const input of $$("#try-fields input[data-in='header']")) {
    if (input.value !== "") options.headers[input.name] = input.value;
  }
  let body;
  if (bodyField) body = bodyField.value;
  const started = performance.now();
  if (body !== undefined) {
    options.body = body;
    options.headers["Content-Type"] = "application/json";
  }
  const response = await fetch(currentUrl(), options);
  const text = await response.text();
  let json = null;
  try { json = text ? JSON.parse(text) : null; } catch (e) { json = null; }
  showAnswer({
    status: response.status, ok: response.ok, text, json,
    millis: performance.now() - started,
    monotonic: Number(response.headers.get("X-Host-Monotonic-Ms")) || null,
  });
  refreshWorld();
}

// ---- The world and the peer editors ------------------------------------------

async function refreshWorld() {
  const answer = await request("GET", "/_host/state");
  if (!answer.ok || !answer.json) return;
  const world = answer.json;
  state.world = world;
  const queues = world.resources.find((r) => r.path === QUEUES_PATH);
  state.queues = queues && Array.isArray(queues.value) ? queues.value : [];
  $("#plugin-name").textContent = `${world.plugin.name} ${world.plugin.version}`;
  const facts = $("#facts");
  facts.replaceChildren(
    el("span", {}, "scenario ", el("b", { text: world.scenario || "—" })),
    el("span", {}, "signed in ", el("b", { text: world.currentSummoner ?? "nobody" })),
    el("span", {}, "calls ", el("b", { text: world.calls })),
    el("span", {}, "gatekeeper queries ", el("b", { text: world.gatekeeperQueries })));
  renderQueues();
  renderGatekeeper();
  renderResourcePaths();
  renderFaults();
}

function renderQueues() {
  const body = $("#queue-table tbody");
  body.replaceChildren();
  for (const queue of state.queues) {
    const open = queue.queueAvailability === "Available";
    body.append(el("tr", { "data-queue": queue.id },
      el("td", { class: "mono", text: String(queue.id) }),
      el("td", { text: queue.type }),
      el("td", { text: String(queue.minLevel) }),
      el("td", {}, el("span", { class: `avail ${queue.queueAvailability}`, text: queue.queueAvailability })),
      el("td", {}, el("button", {
        type: "button", class: open ? "small danger" : "small",
        text: open ? "Close" : "Open",
        onclick: () => setQueueOpen(queue.id, !open),
      }))));
  }
}

async function setQueueOpen(id, open) {
  const queues = state.queues.map((queue) => queue.id === id
    ? { ...queue, queueAvailability: open ? "Available" : "PlatformDisabled" } : queue);
  await change("PUT", `/_host/resources${QUEUES_PATH}`, queues,
    `Queue ${id} ${open ? "opened" : "closed"}; the queue list was published.`);
}

function restrictionRow(restriction = {}) {
  const input = (name, value, type = "text") => el("input", { name, type, value: value ?? "" });
  const reasons = ["RANKED_RESTRICTED", "PLAYER_BANNED", "MIN_LEVEL_RESTRICTED", "TIER_DELTA_RESTRICTED",
    "QUEUE_DODGER", "LEAVER_BUSTED", "RANKED_MIN_LEVEL", "ALREADY_IN_GAME"];
  const reason = el("select", { name: "reason" },
    ...Array.from(new Set([restriction.reason, ...reasons].filter(Boolean))).map((r) =>
      el("option", { value: r, text: r })));
  if (restriction.reason) reason.value = restriction.reason;
  const minutes = restriction.remainingMillis ? String(Math.round(restriction.remainingMillis / 60000)) : "";
  const row = el("tr", {},
    el("td", {}, input("queueId", restriction.queueId, "number")),
    el("td", {}, input("summonerId", restriction.summonerId, "number")),
    el("td", {}, reason),
    el("td", {}, input("minutes", minutes, "number")),
    el("td", {}, input("summonerName", restriction.summonerName)),
    el("td", {}, el("button", { type: "button", class: "small danger", text: "✕", onclick: () => row.remove() })));
  row.extra = restriction;
  return row;
}

function renderGatekeeper() {
  const world = state.world;
  const gatekeeper = world.gatekeeper;
  const switchValue = world.resources.find((r) => r.path === GATEKEEPER_SWITCH);
  $("#gk-enabled").checked = !!(switchValue && switchValue.value === true);
  if (document.activeElement && document.activeElement.closest("#gk-table, #gk-delivery, #gk-yields, #gk-error")) {
    return;  // do not overwrite what is being edited
  }
  $("#gk-delivery").value = gatekeeper.delivery;
  $("#gk-yields").value = gatekeeper.yields || 1;
  $("#gk-error").value = gatekeeper.error || "";
  const body = $("#gk-table tbody");
  body.replaceChildren(...gatekeeper.restrictions.map((r) => restrictionRow(r)));
}

async function saveGatekeeper() {
  const restrictions = $$("#gk-table tbody tr").map((row) => {
    const value = (name) => $(`[name='${name}']`, row).value;
    const restriction = {
      queueId: Number(value("queueId")),
      summonerId: Number(value("summonerId")),
      reason: value("reason"),
      remainingMillis: Math.round(Number(value("minutes") || 0) * 60000),
      summonerName: value("summonerName"),
    };
    if (row.extra && row.extra.payload) restriction.payload = row.extra.payload;
    if (row.extra && row.extra.withMembers) restriction.withMembers = row.extra.withMembers;
    return restriction;
  });
  const gatekeeper = { restrictions, delivery: $("#gk-delivery").value };
  if (gatekeeper.delivery === "afterYields") gatekeeper.yields = Number($("#gk-yields").value || 1);
  if ($("#gk-error").value) gatekeeper.error = $("#gk-error").value;
  document.activeElement.blur();
  await change("PUT", "/_host/gatekeeper", gatekeeper,
    `Gatekeeper saved: ${restrictions.length} restriction(s).`);
}

function renderResourcePaths() {
  const select = $("#res-path");
  const current = select.value;
  select.replaceChildren(...state.world.resources.map((r) => el("option", { value: r.path, text: r.path })));
  if (current && state.world.resources.some((r) => r.path === current)) select.value = current;
  if (document.activeElement !== $("#res-value")) loadResourceValue();
}

function loadResourceValue() {
  const path = $("#res-path").value;
  const resource = state.world.resources.find((r) => r.path === path);
  $("#res-value").value = resource ? JSON.stringify(resource.value, null, 2) : "";
}

async function saveResource() {
  const path = $("#res-new-path").value.trim() || $("#res-path").value;
  let value;
  try { value = JSON.parse($("#res-value").value); } catch (e) {
    notice(`Not JSON: ${e.message}`, true);
    return;
  }
  $("#res-new-path").value = "";
  await change("PUT", `/_host/resources${path}`, value, `${path} stored and published.`);
  $("#res-path").value = path;
  loadResourceValue();
}

function renderFaults() {
  const list = $("#fault-list");
  list.replaceChildren(...(state.world.faults.length
    ? state.world.faults.map((f) => el("li", { text: JSON.stringify(f) }))
    : [el("li", { class: "muted", text: "No faults: every peer answers." })]));
}

async function addFault() {
  const fault = { path: $("#fault-path").value.trim(), error: $("#fault-error").value || "fault",
    status: Number($("#fault-status").value || 500) };
  if ($("#fault-times").value) fault.times = Number($("#fault-times").value);
  await change("POST", "/_host/faults", fault, `Fault added for ${fault.path}.`);
}

// ---- Live events ---------------------------------------------------------------

function addLive(kind, data) {
  const list = $("#live-list");
  let text = "";
  let extra = null;
  let level = "";
  if (kind === "log") {
    text = data.text;
    level = data.levelName;
  } else if (kind === "plugin") {
    text = data.name;
    extra = JSON.stringify(data.payload);
  } else if (kind === "scenario") {
    text = data.path ? `${data.change} ${data.path}` : data.change;
  } else {
    text = JSON.stringify(data);
  }
  const now = new Date();
  const when = now.toTimeString().slice(0, 8);
  const item = el("li", { class: `${kind} ${level} fresh`, "data-kind": kind },
    el("span", { class: "when", text: when }),
    el("span", { class: "kind", text: kind === "log" ? (level || "log") : kind === "plugin" ? "event" : "change" }),
    el("span", { class: "text", text }),
    extra ? el("pre", { text: extra }) : null);
  item.hidden = !$(`.live-head input[data-kind='${kind}']`)?.checked;
  list.prepend(item);
  while (list.children.length > LIVE_LIMIT) list.lastChild.remove();
}

function connectEvents() {
  const status = $("#stream-status");
  const source = new EventSource("/events");
  source.onopen = () => { status.className = "status up"; $(".label", status).textContent = "live"; };
  source.onerror = () => { status.className = "status down"; $(".label", status).textContent = "reconnecting"; };
  for (const kind of ["log", "plugin", "scenario", "dropped"]) {
    source.addEventListener(kind, (event) => {
      try { addLive(kind, JSON.parse(event.data)); } catch (e) { addLive(kind, event.data); }
    });
  }
}

// ---- Start -----------------------------------------------------------------------

async function start() {
  $("#try-form").addEventListener("submit", send);
  $("#try-fields").addEventListener("input", updateUrl);
  $("#answer-raw").addEventListener("change", syncRawToggle);
  for (const tab of $$(".tab")) {
    tab.addEventListener("click", () => {
      for (const other of $$(".tab")) other.classList.toggle("active", other === tab);
      for (const body of $$(".tab-body")) body.hidden = body.dataset.body !== tab.dataset.tab;
    });
  }
  for (const toggle of $$(".live-head input[data-kind]")) {
    toggle.addEventListener("change", () => {
      for (const item of $$(`#live-list li[data-kind='${toggle.dataset.kind}']`)) item.hidden = !toggle.checked;
    });
  }
  $("#live-clear").addEventListener("click", () => $("#live-list").replaceChildren());
  $("#gk-enabled").addEventListener("change", (event) =>
    change("POST", "/_host/changes", { setGateKeeperEnabled: event.target.checked },
      `Gatekeeper switch ${event.target.checked ? "on" : "off"}.`));
  $("#gk-add").addEventListener("click", () => $("#gk-table tbody").append(restrictionRow()));
  $("#gk-save").addEventListener("click", saveGatekeeper);
  $("#res-path").addEventListener("change", loadResourceValue);
  $("#res-reload").addEventListener("click", refreshWorld);
  $("#res-save").addEventListener("click", saveResource);
  $("#res-delete").addEventListener("click", () => {
    const path = $("#res-path").value;
    change("DELETE", `/_host/resources${path}`, undefined, `${path} deleted.`);
  });
  $("#fault-add").addEventListener("click", addFault);
  $("#fault-clear").addEventListener("click", () =>
    change("DELETE", "/_host/faults", undefined, "Faults cleared."));

  connectEvents();
  await refreshWorld();
  const api = await request("GET", "/openapi.json");
  state.document = api.json;
  state.operations = buildOperations(state.document);
  renderResourceList();
  const first = state.operations.find((e) => e.path.includes("/v3/eligibility")) || state.operations[0];
  if (first) select(first);
  window.consoleReady = true;
}

start();

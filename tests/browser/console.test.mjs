// The console page in a real browser (Debian's chromium, headless): a v3
// call shows its restrictions in words, closing a queue in the peer editor
// brings the plugin's log line into the live pane and changes the answer,
// and a gatekeeper restriction shows when it ends.
import { test } from "node:test";
import assert from "node:assert/strict";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { chromium } from "playwright-core";
import { startServer } from "./kav_host.mjs";

const CHROMIUM = process.env.CHROMIUM ?? "/usr/bin/chromium";

test("the console tries a resource, edits the peers and shows the plugin's reaction", async () => {
  const server = await startServer(["--token", "console-test"]);
  const profile = mkdtempSync(join(tmpdir(), "kav-console-"));
  // A fresh profile (--user-data-dir) for every run.
  const browser = await chromium.launchPersistentContext(profile, {
    executablePath: CHROMIUM,
    headless: true,
    viewport: { width: 1480, height: 900 },
    args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
  const failures = [];
  try {
    const page = await browser.newPage();
    page.on("pageerror", (error) => failures.push(error.message));
    page.on("requestfailed", (request) => {
      if (!request.url().endsWith("/events")) failures.push(`${request.url()} failed`);
    });
    // The token link sets the console's cookie and leads to the page.
    await page.goto(`${server.url}?token=console-test`);
    await page.waitForFunction(() => window.consoleReady === true);
    assert.match(await page.textContent("#plugin-name"), /kav-queue-eligibility 18\.0\.0/);
    await page.waitForSelector("#stream-status.up");

    // A v3 call for a party: its restrictions, members and expiry in words.
    await page.click("#resource-list li[data-operation='GetKavQueueEligibilityV3Eligibility']");
    await page.fill("input[name='summonerIds']", "[1001, 1002]");
    await page.fill("input[name='queueIds']", "[420, 440]");
    await page.click("#try-send");
    await page.waitForSelector("#answer-view .queue[data-queue='440']");
    const first = await page.textContent("#answer-view");
    assert.match(first, /TeamDivisionRestriction/);
    assert.match(first, /PlayerRankedSuspensionRestriction/);
    assert.match(first, /ends in 2 h 0 min/);
    assert.equal(await page.textContent("#answer-status"), "200");

    // Close queue 440 in the peer editor.
    await page.click(".tab[data-tab='queues']");
    await page.click("#queue-table tr[data-queue='440'] button");
    await page.waitForSelector("#queue-table tr[data-queue='440'] .avail.PlatformDisabled");
    await page.waitForSelector(
      "#live-list li.log:has-text('Queue Eligibility configuration: queues changed, self eligibility is dirty')");
    await page.click("#try-send");
    await page.waitForFunction(() =>
      document.querySelector("#answer-view .queue[data-queue='440']")?.textContent.includes("QueueDisabled"));

    // A ban of 59 minutes from the gatekeeper, for a friend in queue 450.
    await page.click(".tab[data-tab='gatekeeper']");
    await page.click("#gk-add");
    const row = page.locator("#gk-table tbody tr").last();
    await row.locator("input[name='queueId']").fill("450");
    await row.locator("input[name='summonerId']").fill("1002");
    await row.locator("select[name='reason']").selectOption("PLAYER_BANNED");
    await row.locator("input[name='minutes']").fill("59");
    await page.click("#gk-save");
    await page.waitForSelector("#live-list li.scenario:has-text('setGatekeeper')");
    await page.fill("input[name='queueIds']", "[450]");
    await page.click("#try-send");
    await page.waitForFunction(() =>
      document.querySelector("#answer-view .queue[data-queue='450']")?.textContent.includes("ends in 59 min"));
    assert.match(await page.textContent("#answer-view"), /PlayerBannedRestriction/);

    if (process.env.SCREENSHOT) {
      await page.fill("input[name='queueIds']", "[420, 440, 450, 830]");
      await page.click("#try-send");
      await page.waitForSelector("#answer-view .queue[data-queue='830']");
      await page.click(".tab[data-tab='queues']");
      await page.evaluate(() => document.querySelector(".workspace").scrollTo(0, 0));
      await page.screenshot({ path: process.env.SCREENSHOT });
    }
    assert.deepEqual(failures, []);
  } finally {
    await browser.close();
    rmSync(profile, { recursive: true, force: true });
    assert.equal(await server.stop(), 0);
  }
});

// Drives Debian's chromium, headless, on a campaign page of velkor-tune serve
// for the tuner's tests: prints as JSON every state of the figures the page
// showed until the campaign ended, how often it asked the server while the
// tab was hidden and after the end, and writes a desktop and a phone
// screenshot. Usage: node page.mjs URL SHOT-PREFIX [HIDE-SECONDS]
import { browser as launch } from '../../../web/tests/site.mjs';

const [url, shots, hide = '0'] = process.argv.slice(2);
const browser = await launch();
const out = { states: [], asked: 0, askedHidden: null, askedAfterEnd: null, errors: [] };
try {
  const page = await browser.newPage({ viewport: { width: 1280, height: 900 } });
  page.on('pageerror', (err) => out.errors.push(String(err)));
  page.on('console', (msg) => { if (msg.type() === 'error') out.errors.push(msg.text()); });
  page.on('request', (req) => { if (new URL(req.url()).pathname.startsWith('/api/')) out.asked++; });
  const read = () => page.evaluate(() => ({
    status: document.getElementById('status').textContent,
    sections: [...document.querySelectorAll('section[data-kind]')].map((s) => ({
      path: s.dataset.path, kind: s.dataset.kind,
      figures: Object.fromEntries([...s.querySelectorAll('[data-figure]')].map((e) => [e.dataset.figure, e.textContent])),
    })),
  }));
  const pause = (ms) => new Promise((res) => setTimeout(res, ms));
  const setHidden = (hidden) => page.evaluate((h) => {
    Object.defineProperty(document, 'visibilityState', { value: h ? 'hidden' : 'visible', configurable: true });
    document.dispatchEvent(new Event('visibilitychange'));
  }, hidden);
  await page.goto(url);
  await page.waitForSelector('section[data-kind], p.error');
  const end = Date.now() + 240000;
  let hidden = Number(hide) > 0;
  for (;;) {
    const state = await read();
    if (JSON.stringify(state.sections) !== JSON.stringify(out.states.at(-1)?.sections)) out.states.push(state);
    if (state.status.startsWith('ended') || Date.now() > end) break;
    if (hidden) {
      // Hidden while the campaign runs: the page asks nothing until shown again.
      hidden = false;
      await setHidden(true);
      const before = out.asked;
      await pause(Number(hide) * 1000);
      out.askedHidden = out.asked - before;
      await setHidden(false);
    }
    await pause(100);
  }
  const before = out.asked;
  await pause(1500);
  out.askedAfterEnd = out.asked - before;
  out.final = await read();
  await page.screenshot({ path: `${shots}-desktop.png`, fullPage: true });
  await page.setViewportSize({ width: 390, height: 844 });
  await pause(200);
  await page.screenshot({ path: `${shots}-phone.png`, fullPage: true });
} finally {
  await browser.close();
}
process.stdout.write(JSON.stringify(out) + '\n');

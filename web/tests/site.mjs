// What the page's tests share: the static site served on 127.0.0.1 as any
// plain host would serve it, or cross-origin isolated (web/serve.mjs), and
// Debian's chromium, headless, driven by playwright-core (which downloads
// no browser).
import { chromium } from 'playwright-core';
export { serve } from '../serve.mjs';

export function browser() {
  return chromium.launch({
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update', '--disable-sync', '--no-first-run'],
  });
}

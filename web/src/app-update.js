// The page as an installed app: registers the service worker (sw.js), which
// keeps every file of the site for use offline, and announces a newer build
// once it has been stored ("A new version is ready"); the button makes the
// new build take over and reloads the page with it.
export function registerApp(banner, button) {
  if (!('serviceWorker' in navigator)) return;
  let waiting = null, asked = false;
  const announce = (worker) => {
    if (!navigator.serviceWorker.controller) return; // the first install: this page is the build
    waiting = worker;
    banner.hidden = false;
  };
  button.addEventListener('click', () => {
    asked = true;
    if (waiting) waiting.postMessage('take over');
  });
  navigator.serviceWorker.addEventListener('controllerchange', () => asked && location.reload());
  navigator.serviceWorker
    .register('./sw.js')
    .then((registration) => {
      if (registration.waiting) announce(registration.waiting);
      registration.addEventListener('updatefound', () => {
        const worker = registration.installing;
        worker.addEventListener('statechange', () => worker.state === 'installed' && announce(worker));
      });
      // A tab left open looks for a new build now and then.
      setInterval(() => registration.update().catch(() => {}), 3600 * 1000);
    })
    .catch(() => {}); // no service worker (a file: page, a private window): the page works online
}

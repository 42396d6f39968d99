// The page's service worker: the app offline. At install it stores every
// file of the site in a cache named after the build (web/precache.mjs fills
// in BUILD); it answers from that cache first and from the network only for
// what is not there; at activation it deletes the caches of other builds.
// A new build waits until the page, told by app-update.js, asks it to take
// over ("a new version is ready").
const BUILD = { name: 'velkor-unbuilt', files: [] };

self.addEventListener('install', (event) => {
  event.waitUntil(
    caches.open(BUILD.name).then((cache) => cache.addAll(BUILD.files.map((file) => new Request(file, { cache: 'reload' })))),
  );
});

self.addEventListener('activate', (event) => {
  event.waitUntil(
    caches
      .keys()
      .then((names) => Promise.all(names.filter((name) => name.startsWith('velkor-') && name !== BUILD.name).map((name) => caches.delete(name))))
      .then(() => self.clients.claim()),
  );
});

self.addEventListener('message', (event) => {
  if (event.data === 'take over') self.skipWaiting();
});

self.addEventListener('fetch', (event) => {
  const request = event.request;
  if (request.method !== 'GET' || new URL(request.url).origin !== self.location.origin) return;
  event.respondWith(
    caches
      .open(BUILD.name)
      .then((cache) => cache.match(request, { ignoreSearch: true }))
      .then((stored) => stored || fetch(request)),
  );
});

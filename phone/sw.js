// Keeps the page's own files for when the server cannot be reached. They are
// asked from the server first, so a new version is seen at once; the copy is
// only for when it does not answer. The API never passes through here: its
// answers are the server's or an error, never an old copy.
'use strict';

const CACHE = 'kestrava-shell-1';
const SHELL = ['./', 'index.html', 'app.css', 'app.js', 'climate.js', 'remote.js', 'reserve.js',
  'scenes.js', 'manifest.webmanifest', 'icon-192.png'];

self.addEventListener('install', (ev) => {
  ev.waitUntil(caches.open(CACHE).then((c) => c.addAll(SHELL)).then(() => self.skipWaiting()));
});

self.addEventListener('activate', (ev) => {
  ev.waitUntil(caches.keys()
    .then((names) => Promise.all(names.filter((n) => n !== CACHE).map((n) => caches.delete(n))))
    .then(() => self.clients.claim()));
});

self.addEventListener('fetch', (ev) => {
  const url = new URL(ev.request.url);
  if (ev.request.method !== 'GET' || url.origin !== location.origin || !url.pathname.startsWith('/m/')) return;
  ev.respondWith((async () => {
    try {
      const fresh = await fetch(ev.request);
      if (fresh.ok) {
        const copy = fresh.clone();
        ev.waitUntil(caches.open(CACHE).then((c) => c.put(ev.request, copy)));
      }
      return fresh;
    } catch (e) {
      const kept = await caches.match(ev.request, { ignoreSearch: true });
      if (kept) return kept;
      throw e;
    }
  })());
});

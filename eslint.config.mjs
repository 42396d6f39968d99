// The one linter of the project's JavaScript: the match driver, the tuner's
// campaign page, the browser page and the tests that drive them.
import js from '@eslint/js';
import globals from 'globals';

export default [
  { ignores: ['**/node_modules/**', 'build/**'] },
  js.configs.recommended,
  {
    files: ['**/*.mjs', '**/*.js', '**/*.cjs'],
    languageOptions: { ecmaVersion: 2022, sourceType: 'module', globals: { ...globals.node } },
    rules: { 'no-unused-vars': ['error', { argsIgnorePattern: '^_', caughtErrors: 'none' }] },
  },
  // The page runs in browsers; the engine's worker is a classic script.
  { files: ['web/src/**/*.js'], languageOptions: { globals: { ...globals.browser } } },
  // The client runs under Node and in browsers; its worker thread is CommonJS.
  { files: ['client/**/*.js', 'client/tests/**/*.mjs'], languageOptions: { globals: { ...globals.browser, ...globals.node } } },
  { files: ['client/**/*.cjs'], languageOptions: { sourceType: 'commonjs', globals: { ...globals.node } } },
  // The page's tests hand functions to the browser to run there.
  { files: ['web/tests/**/*.mjs'], languageOptions: { globals: { ...globals.browser, ...globals.node } } },
  { files: ['web/engine/worker.js'], languageOptions: { sourceType: 'script', globals: { ...globals.worker } } },
  { files: ['web/src/sw.js'], languageOptions: { sourceType: 'script', globals: { ...globals.serviceworker } } },
  // Emscripten's pre-js and library run inside the engine's module, beside
  // its runtime.
  {
    files: ['web/engine/pre.js', 'web/engine/library.js'],
    languageOptions: {
      sourceType: 'script',
      globals: { ...globals.browser, ...globals.node, Module: 'writable', mergeInto: 'readonly', LibraryManager: 'readonly',
        Asyncify: 'readonly', HEAPU8: 'readonly', HEAP32: 'readonly' },
    },
    rules: { 'no-unused-vars': ['error', { varsIgnorePattern: '^velkorInput$' }] },
  },
  { files: ['web/engine/library.js'], languageOptions: { globals: { velkorInput: 'readonly' } } },
  // The tuner's campaign page runs in the browser, a classic script.
  {
    files: ['tools/tune/velkor_tune/page/**/*.js'],
    languageOptions: { sourceType: 'script', globals: { ...globals.browser } },
  },
  // The test that drives it hands functions to the page.
  { files: ['tools/tune/tests/*.mjs'], languageOptions: { globals: { ...globals.node, ...globals.browser } } },
];

// The one linter of the project's JavaScript: the match driver, the tuner's
// campaign page, the browser page and the tests that drive them.
import js from '@eslint/js';
import globals from 'globals';

export default [
  { ignores: ['**/node_modules/**', 'build/**'] },
  js.configs.recommended,
  {
    files: ['**/*.mjs', '**/*.js'],
    languageOptions: { ecmaVersion: 2022, sourceType: 'module', globals: { ...globals.node } },
    rules: { 'no-unused-vars': ['error', { argsIgnorePattern: '^_', caughtErrors: 'none' }] },
  },
  // The tuner's campaign page runs in the browser, a classic script.
  {
    files: ['tools/tune/velkor_tune/page/**/*.js'],
    languageOptions: { sourceType: 'script', globals: { ...globals.browser } },
  },
  // The test that drives it hands functions to the page.
  { files: ['tools/tune/tests/*.mjs'], languageOptions: { globals: { ...globals.node, ...globals.browser } } },
];

// SPDX-License-Identifier: MIT
// Before the page is drawn, so that it doesn't flash in the other colors.
try {
  document.documentElement.dataset.theme = localStorage.getItem('theme') || '';
} catch {
  // no storage: the system's theme
}

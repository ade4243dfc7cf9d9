// SPDX-License-Identifier: MIT
//
// The pages of the site: groups of its menu, with the sources in English. The Chinese page has the same
// name with .zh.md; where there is none, the Chinese menu leads to the English one.

export const groups = [
  { title: { en: 'Start', zh: '开始' }, pages: ['docs/start.md', 'docs/troubleshooting.md'] },
  {
    title: { en: 'Writing pages', zh: '编写网页' },
    pages: ['docs/protocol.md', 'client/README.md', 'console/README.md', 'docs/counterpages.md', 'docs/signature.md', 'docs/upload.md'],
  },
  {
    title: { en: 'Running terminals', zh: '运行终端' },
    pages: ['docs/terminal.md', 'docs/integration.md', 'docs/access.md', 'docs/devicectl.md', 'docs/fleet.md'],
  },
  {
    title: { en: 'Devices', zh: '设备' },
    pages: ['docs/portable.md', 'docs/cards.md', 'docs/faces.md', 'docs/fingers.md', 'docs/maker.md'],
  },
  { title: { en: 'Development', zh: '开发' }, pages: ['docs/architecture.md', 'docs/performance.md', 'CONTRIBUTING.md', 'CHANGELOG.md'] },
];

/** Texts of the site itself. */
export const words = {
  en: {
    name: 'Device server', menu: 'Menu', search: 'Search', other: '中文', onPage: 'On this page', theme: 'Light or dark',
    nothing: 'Nothing found', onlyEnglish: '',
  },
  zh: {
    name: '设备服务', menu: '目录', search: '搜索', other: 'English', onPage: '本页内容', theme: '浅色或深色',
    nothing: '没有找到', onlyEnglish: '（英文）',
  },
};

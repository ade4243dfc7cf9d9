// SPDX-License-Identifier: MIT
//
// The commands by family, with search, favorites and recent ones.

'use strict';

const RECENT_COMMANDS = 8;

/** A tree of two levels. It handles keys as a whole; the active row is its active descendant. */
class CommandTree {
  /**
   * @param view    elements: tree, search, empty, count
   * @param chosen  called with a command of the facts, and whether to move the focus to its fields
   */
  constructor(view, chosen) {
    this.view = view;
    this.chosen = chosen;
    this.favourites = settings.get('favourites', []);
    this.recent = settings.get('recent', []);
    this.open = new Set(settings.get('families', ['favourites', 'preview']));
    this.current = ''; // name of the command being shown
    this.rows = []; // visible rows, { element, group, command }
    this.active = -1;
    this.drawnQuery = '';
    view.tree.tabIndex = 0;
    view.tree.addEventListener('keydown', (event) => this.key(event));
    view.tree.addEventListener('focus', () => this.activate(Math.max(this.active, 0)));
    view.search.addEventListener('input', () => this.draw());
    view.search.addEventListener('keydown', (event) => this.searchKey(event));
  }

  /** Records that a command was sent. */
  used(name) {
    if (!facts.byName.has(name) || this.recent[0] === name)
      return;
    this.recent = [name, ...this.recent.filter((each) => each !== name)].slice(0, RECENT_COMMANDS);
    settings.set('recent', this.recent);
    this.draw();
  }

  isFavourite(name) {
    return this.favourites.includes(name);
  }

  toggleFavourite(name) {
    this.favourites = this.isFavourite(name) ? this.favourites.filter((each) => each !== name)
      : [...this.favourites, name];
    settings.set('favourites', this.favourites);
    this.draw();
  }

  /** Highlights the command being shown. */
  mark(name) {
    this.current = name;
    for (const row of this.rows)
      row.element.setAttribute('aria-selected', String(Boolean(row.command) && row.command.name === name));
  }

  groups() {
    const named = (names) => names.map((name) => facts.byName.get(name)).filter(Boolean);
    return [
      { id: 'favourites', title: t('favourites'), commands: named(this.favourites) },
      { id: 'recent', title: t('recent'), commands: named(this.recent) },
      ...facts.families.map((family) => ({
        id: family.id,
        title: said(family.title),
        commands: facts.commands.filter((command) => command.family === family.id),
      })),
    ].filter((group) => group.commands.length);
  }

  draw() {
    const query = this.view.search.value.trim();
    const before = this.rows[this.active];
    const scroll = this.view.tree.scrollTop;
    removeChildren(this.view.tree);
    this.rows = [];
    const found = query ? searchCommands(query) : facts.commands;
    if (query)
      this.drawFound(found);
    else
      this.groups().forEach((group) => this.drawGroup(group, group.commands, this.open.has(group.id)));
    this.view.empty.hidden = found.length > 0;
    this.view.empty.textContent = t(facts.commands.length ? 'search.nothing' : 'commands.missing');
    this.view.count.textContent = query ? t('search.count', found.length, facts.commands.length)
      : facts.commands.length;
    this.view.tree.scrollTop = query === this.drawnQuery ? scroll : 0;
    this.drawnQuery = query;
    const again = before ? this.rows.findIndex((row) => row.group.id === before.group.id
      && row.command === before.command) : -1;
    this.active = -1;
    if (again >= 0)
      this.activate(again, false);
    this.mark(this.current);
  }

  /** The commands that were found, best first, without families. */
  drawFound(commands) {
    for (const command of commands)
      this.view.tree.append(this.commandRow({ id: 'found' }, command));
  }

  drawGroup(group, commands, open) {
    const item = element('li', 'group');
    item.setAttribute('role', 'treeitem');
    item.setAttribute('aria-expanded', String(open));
    const head = element('div', 'family');
    head.append(element('span', 'turn', open ? '▾' : '▸'), element('span', 'family-title', group.title),
                element('span', 'dim', String(commands.length)));
    head.addEventListener('click', () => this.toggle(group.id));
    item.append(head);
    this.addRow(item, head, group, null);
    if (open) {
      const list = element('ul');
      list.setAttribute('role', 'group');
      for (const command of commands)
        list.append(this.commandRow(group, command));
      item.append(list);
    }
    this.view.tree.append(item);
  }

  commandRow(group, command) {
    const row = element('li', 'command');
    row.setAttribute('role', 'treeitem');
    row.append(element('span', 'command-name', command.name));
    if (this.isFavourite(command.name))
      row.append(element('span', 'starred', '★'));
    row.append(element('span', 'command-about', said(command.summary)));
    row.title = `${command.name}\n${said(command.summary)}`;
    row.addEventListener('click', () => {
      this.activate(this.rows.findIndex((each) => each.element === row));
      this.chosen(command, false);
    });
    this.addRow(row, row, group, command);
    return row;
  }

  addRow(item, shown, group, command) {
    item.id = `row-${this.rows.length}`;
    this.rows.push({ element: item, shown, group, command });
  }

  toggle(id) {
    if (!this.open.delete(id))
      this.open.add(id);
    settings.set('families', [...this.open]);
    this.draw();
  }

  /** Makes a row the active one, which keys act on. */
  activate(index, scroll = true) {
    if (this.rows[this.active])
      this.rows[this.active].shown.classList.remove('active');
    this.active = Math.min(index, this.rows.length - 1);
    const row = this.rows[this.active];
    if (!row)
      return;
    row.shown.classList.add('active');
    this.view.tree.setAttribute('aria-activedescendant', row.element.id);
    if (scroll)
      row.shown.scrollIntoView({ block: 'nearest' });
  }

  key(event) {
    const row = this.rows[this.active];
    if (hasModifier(event) || !row)
      return;
    const isOpen = !row.command && row.element.getAttribute('aria-expanded') === 'true';
    const act = {
      ArrowDown: () => this.activate(this.active + 1),
      ArrowUp: () => (this.active > 0 ? this.activate(this.active - 1) : this.view.search.focus()),
      Home: () => this.activate(0),
      End: () => this.activate(this.rows.length - 1),
      ArrowRight: () => (row.command || isOpen ? this.activate(this.active + 1)
        : this.toggle(row.group.id)),
      ArrowLeft: () => (isOpen ? this.toggle(row.group.id)
        : this.activate(this.rows.findIndex((each) => each.group.id === row.group.id))),
      Enter: () => (row.command ? this.chosen(row.command, true) : this.toggle(row.group.id)),
      ' ': () => (row.command ? this.chosen(row.command, false) : this.toggle(row.group.id)),
      f: () => row.command && this.toggleFavourite(row.command.name),
    }[keyOf(event)];
    if (!act)
      return;
    event.preventDefault();
    act();
  }

  /** Moves from the search field down to the list; Enter selects the first command found. */
  searchKey(event) {
    if (event.isComposing)
      return;
    if (event.key === 'ArrowDown') {
      event.preventDefault();
      this.view.tree.focus();
    } else if (event.key === 'Enter') {
      event.preventDefault(); // or the newly focused field would handle it, too
      const first = this.rows.find((row) => row.command);
      if (first && this.view.search.value)
        this.chosen(first.command, true);
    } else if (event.key === 'Escape') {
      this.view.search.value = '';
      this.draw();
    }
  }
}

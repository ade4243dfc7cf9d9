// SPDX-License-Identifier: MIT
//
// The connection to the server: the client's, with the address as typed and what to say about it.

'use strict';

const DEFAULT_ADDRESS = 'ws://127.0.0.1:1818';
const DEFAULT_PORT = 1818;

/** A typed address as a URL text, with what was left out; '' when it is none. */
function completeAddress(typed) {
  let text = typed.trim();
  if (/\s/.test(text))
    return '';
  if (/^[\w.-]+$/.test(text))
    text += `:${DEFAULT_PORT}`;
  if (!text.includes('://'))
    text = `ws://${text}`;
  try {
    const url = new URL(text);
    return ['ws:', 'wss:'].includes(url.protocol) && url.hostname && !url.hash ? text : '';
  } catch {
    return '';
  }
}

/** One server at a time, connected to again after it was lost until close() is called. */
class Connection {
  /**
   * @param listener  changed(note, ...values): the state is another, note is the key of a text for
   *                  the log or ''; received(text): a message; picture(client): there is another
   *                  client whose frames are to be shown
   */
  constructor(listener) {
    this.listener = listener;
    this.client = null;
    this.address = '';
    this.unreachable = false; // the latest try failed
    this.reason = ''; // why the browser refuses
    this.nextTry = 0; // Date.now() of it, while waiting
    this.openedAt = 0;
  }

  /** closed, connecting, open or waiting (for the next try) */
  get state() {
    return this.client ? this.client.state : 'closed';
  }

  open(address) {
    this.drop();
    this.address = address;
    const client = new DeviceClient({ url: address });
    this.client = client;
    const current = (act) => (...values) => client === this.client && act(...values);
    client.on('open', current(() => this.opened()));
    client.on('close', current((error) => this.lost(error)));
    client.on('message', current((text) => this.listener.received(text)));
    this.listener.picture(client);
    client.connect().catch(current((error) => this.refused(error)));
    this.listener.changed('');
  }

  close() {
    const note = this.state === 'open' ? 'note.disconnected' : '';
    this.drop();
    this.unreachable = false;
    this.listener.changed(note);
  }

  /** @returns whether the text was handed to the socket */
  send(text) {
    if (this.state !== 'open')
      return false;
    this.client.send(text).catch(() => {}); // fails only with the connection, which "close" tells
    return true;
  }

  opened() {
    this.unreachable = false;
    this.reason = '';
    this.openedAt = Date.now();
    this.listener.changed('note.connected', this.address);
  }

  lost(error) {
    const wasOpen = error.code === 'CONNECTION_LOST';
    const first = wasOpen || !this.unreachable;
    this.unreachable = !wasOpen;
    this.reason = error.code === 'REFUSED_BY_BROWSER' ? error.message : '';
    this.nextTry = Date.now() + error.retryIn;
    this.listener.changed(wasOpen ? 'note.lost' : first ? 'note.unreachable' : '', this.address);
  }

  /** The browser doesn't even try: a bad address, or ws: from a page that came by https. */
  refused(error) {
    if (this.state !== 'closed')
      return; // tries go on, and "close" has told
    this.unreachable = true;
    this.reason = error.message;
    this.listener.changed('note.refused', this.address, error.message);
  }

  /** Ends what is under way and hears no more of it. */
  drop() {
    const { client } = this;
    this.client = null;
    if (client)
      client.close();
  }
}

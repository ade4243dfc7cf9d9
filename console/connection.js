// SPDX-License-Identifier: MIT
//
// The client's connection to the server, with the typed address and the state to show.

'use strict';

const DEFAULT_ADDRESS = 'ws://127.0.0.1:1818';
const DEFAULT_PORT = 1818;

/** Completes a typed address to a URL; '' if it is not an address. */
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

/** A connection to one server, which reconnects until close() is called. */
class Connection {
  /**
   * @param listener  changed(note, ...values): the state has changed, note is the key of a text for
   *                  the log or ''; received(text): a message; picture(client): show the frames of
   *                  this client from now on
   */
  constructor(listener) {
    this.listener = listener;
    this.client = null;
    this.address = '';
    this.unreachable = false; // the latest attempt failed
    this.reason = ''; // why the browser refuses to connect
    this.nextTry = 0; // its Date.now(), while waiting
    this.openedAt = 0;
  }

  /** closed, connecting, open or waiting (for the next attempt) */
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
    this.client.send(text).catch(() => {}); // fails only with the connection, which "close" reports
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

  /** The browser doesn't even try: a bad address, or ws: from a page loaded by https. */
  refused(error) {
    if (this.state !== 'closed')
      return; // attempts continue, and "close" has reported it
    this.unreachable = true;
    this.reason = error.message;
    this.listener.changed('note.refused', this.address, error.message);
  }

  /** Ends the connection or attempt, and ignores the client from then on. */
  drop() {
    const { client } = this;
    this.client = null;
    if (client)
      client.close();
  }
}

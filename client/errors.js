// SPDX-License-Identifier: MIT
//
// What can go wrong.
import { commands } from './commands.js';

/** Base of all errors of this client: they have a name, and a code that never changes. */
export class DeviceError extends Error {
  constructor(code, message) {
    super(message);
    this.name = new.target.name;
    this.code = code;
  }
}

/** There is no such command; the server would not answer. */
export class UnknownCommandError extends DeviceError {
  constructor(name) {
    const meant = Object.keys(commands).find((each) => each.toLowerCase() === name.trim().toLowerCase());
    super('UNKNOWN_COMMAND', meant ? `there is no command ${name}; did you mean ${meant}?`
      : `there is no command ${name}`);
  }
}

/** Arguments that the command doesn't accept or the protocol can't carry. */
export class ArgumentError extends DeviceError {
  constructor(name, what) {
    super('BAD_ARGUMENT', `${name}: ${what}`);
  }
}

/** Nothing listens at the address. */
export class ServerNotRunningError extends DeviceError {
  constructor(url) {
    super('SERVER_NOT_RUNNING', `no connection to ${url}: the device server is not running there`);
  }
}

/**
 * The browser apparently blocks the connection: by its policy, or because its user said no.
 */
export class RefusedByBrowserError extends DeviceError {
  constructor(url, why) {
    super('REFUSED_BY_BROWSER', `the browser refuses the connection to ${url}: ${why}`);
  }
}

/** The connection was lost; for a call: before its answer arrived. */
export class ConnectionLostError extends DeviceError {
  constructor(name) {
    super('CONNECTION_LOST', 'the connection to the device server was lost'
        + (name ? ` before ${name} was answered` : ''));
  }
}

const reasons = {
  turn: 'an earlier call of it has not ended, in this page or another tab',
  connection: 'there is no connection yet: the server does not respond, or the browser is asking its user',
  earlier: 'an earlier call of it, perhaps of a page that has gone, may still be answered',
  current: 'the answer may have gone to another page that sent a command meanwhile, or been dropped because a '
    + 'page disconnected',
  busy: 'the server may be busy, perhaps with another page',
};

/** No answer arrived in time. `phase` is what it was waiting for: turn, connection, earlier, answer. */
export class CallTimeoutError extends DeviceError {
  constructor(name, milliseconds, phase = 'answer', fact = {}) {
    const why = reasons[phase] || (fact.late && !fact.to ? reasons.current : reasons.busy);
    const dropped = phase === 'answer' && fact.dropped ? ', or AutoLivingBody may have dropped it' : '';
    super('TIMED_OUT', `no answer to ${name} within ${milliseconds / 1000} s: ${why}${dropped}`);
    this.phase = phase;
  }
}

/** The call's AbortSignal was aborted; `reason` is the signal's, where the browser has one. */
export class AbortError extends DeviceError {
  constructor(name, reason) {
    super('ABORTED', `${name} was aborted`);
    this.reason = reason;
  }
}

/** The device could not do it; `result` is what was answered. Only the jobs report failures in this way. */
export class FailedError extends DeviceError {
  constructor(name, result, message) {
    super('FAILED', `${name} failed: ${message || 'the log of the server has the reason'}`);
    this.result = result;
  }
}

/** close() was called. */
export class ClosedError extends DeviceError {
  constructor() {
    super('CLOSED', 'this client was closed');
  }
}

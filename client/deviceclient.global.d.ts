// SPDX-License-Identifier: MIT
import * as client from './deviceclient.js';

declare global {
  /** Defined by the script: the class, with the module's other exports as properties. */
  var DeviceClient: typeof client.DeviceClient & Omit<typeof client, 'DeviceClient'>;
}

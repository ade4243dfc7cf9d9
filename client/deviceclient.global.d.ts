// SPDX-License-Identifier: MIT
import * as client from './deviceclient.js';

declare global {
  /** What the script makes: the class, and on it all that the module exports. */
  var DeviceClient: typeof client.DeviceClient & Omit<typeof client, 'DeviceClient'>;
}

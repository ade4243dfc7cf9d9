// SPDX-License-Identifier: MIT
//
// The script of a page, to be bundled.
import { DeviceClient } from 'device-server-client';

const client = new DeviceClient({ url: new URLSearchParams(window.location.search).get('server') });
client.preview(document.querySelector('canvas'), { worker: true });
client.on('drawn', async ({ drawn }) => {
  if (drawn === 1)
    document.title = `${await client.call('getVersion')} ${document.querySelector('canvas').width}`;
});
client.call('bStartPlay');

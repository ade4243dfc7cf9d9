// SPDX-License-Identifier: MIT
//
// Work that takes its time, as one promise each, on top of call(). The methods of DeviceClient that
// deviceclient.d.ts describes; a failure that the server reports by its result is a FailedError.
import { FailedError } from './errors.js';

/** Seconds added to what the customer has, for the devices and the way. */
const margin = 20;

const isObject = (value) => value !== null && typeof value === 'object';

function succeeded(name, result, ok, message) {
  if (!ok)
    throw new FailedError(name, result, message);
  return result;
}

/** Data of a counter page: "," "%" and line breaks in values are escaped. */
function pageData(data) {
  const escapes = { '%': '%25', ',': '%2C', '\n': '%0A' };
  const escaped = (value) => String(value).replace(/[%,\n]/g, (found) => escapes[found]);
  return Object.entries(data).map(([key, value]) => `${key}=${escaped(value)}`).join(',');
}

function fromPageData(text) {
  const pairs = {};
  let key = 'text';
  for (const part of text.split(',')) {
    const at = part.indexOf('=');
    if (at >= 0)
      key = part.slice(0, at);
    pairs[key] = at < 0 && key in pairs ? `${pairs[key]},${part}` : part.slice(at + 1);
  }
  for (const each of Object.keys(pairs))
    pairs[each] = pairs[each].replace(/%(2C|25|0A)/g, (_, code) => String.fromCharCode(parseInt(code, 16)));
  return pairs;
}

export const jobs = {
  // -- Faces and fingers --

  async compareFaces(image1, image2, options) {
    const score = await this.callWith({ ...options }, 'lImageMatch', image1, image2);
    return succeeded('lImageMatch', score, score >= 0);
  },

  async compareWithCamera(image, { seconds = 10, ...options } = {}) {
    const score = await this.eventAfter('AfterbImageMatchOnline', { seconds: seconds + margin, ...options },
                                        'bImageMatchOnline', image, seconds, 0, 0);
    return succeeded('bImageMatchOnline', score, score >= 0);
  },

  async faceFeature({ seconds = 10, ...options } = {}) {
    const feature = await this.eventAfter('AfterbFaceFeatureGetOnline', { seconds: seconds + margin, ...options },
                                          'bFaceFeatureGetOnline', seconds, 0);
    return succeeded('bFaceFeatureGetOnline', feature, feature !== '', 'no face appeared');
  },

  checkLiveness({ seconds = 10, ...options } = {}) {
    return this.eventAfter('AfterbLivingBodyDetectOnline', { seconds: seconds + margin, ...options },
                           'bLivingBodyDetectOnline', seconds, 0);
  },

  async watchLiveness(options) {
    try {
      return await this.eventAfter('AfterbLivingBodyDetectEvent2', { seconds: 60, ...options }, 'AutoLivingBody');
    } catch (error) {
      if (['ABORTED', 'TIMED_OUT'].includes(error.code) && this.state === 'open')
        this.call('CloseLivingBody').catch(() => {}); // the page has its error already
      throw error;
    }
  },

  async captureFinger({ seconds = 10, ...options } = {}) {
    const finger = await this.callWith(options, 'fingerCaptureRawData', seconds);
    return succeeded('fingerCaptureRawData', finger, isObject(finger) && !(finger.score < 0), finger && finger.msg);
  },

  // -- Cards --

  readIdCard(options) { return this.readCard(options, 'readIDMsg'); },

  readSocialCard({ type, ...options } = {}) { return this.readCard(options, 'iReadCardBas_noPasam', type); },

  readBankCard({ type, ...options } = {}) { return this.readCard(options, 'GetBankCardInfo', type); },

  async readCard(options, name, ...args) {
    const card = await this.callWith({ ...options }, name, ...args);
    return succeeded(name, card, isObject(card) && (card.code === undefined || card.code === '0'),
                     card && card.message);
  },

  // -- Recording and scanning --

  async recordUntil(end, { file, mpeg4 = false, ...options }) {
    if (end && end.then)
      end.then(null, () => {}); // it may be rejected before it is waited for
    const start = mpeg4 ? 'bStartRecMp3' : 'bStartRec';
    const started = await this.callWith(options, start, file);
    succeeded(start, started, started);
    let failure;
    try {
      await this.until(end, options.signal);
    } catch (error) {
      failure = error;
    }
    if (this.state === 'open' || !failure) { // what is recorded is kept, whatever has ended it
      const stopped = await this.callWith({ timeout: options.timeout }, 'bStopRec');
      if (!failure)
        succeeded('bStopRec', stopped, stopped);
    }
    if (failure)
      throw failure;
    return file;
  },

  /** Waits for a promise, an AbortSignal or some milliseconds; no longer than the connection lasts. */
  until(end, signal) {
    return this.pending({ name: 'recordUntil', sent: true }, { signal }, (done) => {
      if (typeof end === 'number') {
        const timer = setTimeout(done, end);
        return () => clearTimeout(timer);
      }
      if (typeof end.then === 'function') {
        end.then(() => done(), (error) => done(error || new Error('recordUntil: its end was rejected')));
        return undefined;
      }
      const aborted = () => done();
      if (end.aborted)
        done();
      else
        end.addEventListener('abort', aborted);
      return () => end.removeEventListener('abort', aborted);
    });
  },

  async* scans(folder, prefix, options = {}) {
    const shots = [];
    const unhear = this.on('iAutoScan', (shot) => shots.push(shot));
    try {
      await this.callWith(options, 'iAutoScan', 1, folder, prefix);
      for (;;) {
        if (shots.length === 0)
          await this.once('iAutoScan', options);
        yield shots.shift();
      }
    } finally {
      unhear();
      if (this.state === 'open')
        await this.call('iAutoScan', 0, folder, prefix);
    }
  },

  // -- The customer's screen --

  async sign(pdf, {
    xml = '', page = 1, x, y, width, height, retain = false, seconds = 120, whole = false, accept, ...options
  }) {
    const place = [page, x, y, width, height].filter((each) => each !== undefined).join('.');
    const ours = (reply) => isObject(reply) && 'status' in reply && (!reply.pdfpath || reply.pdfpath === pdf);
    const reply = await this.eventAfter('text', {
      seconds: seconds > 0 ? seconds + 2 * margin : Infinity, accept: accept || ours, ...options,
    }, whole ? 'DoGWQ_StartSignEx' : 'DoGWQ_StartSign', pdf, xml, place, retain ? 1 : 0, seconds);
    return succeeded('sign', reply, !isObject(reply) || reply.status !== 'error', reply.message);
  },

  askCustomer(data, options) { return this.answerOf('DoGWQ_StartInfo', data, options); },

  rateService(data, options) { return this.answerOf('DoGWQ_StartEvaluator', data, options); },

  /** The customer's answer goes to the current client, so this page keeps being it. */
  async answerOf(name, data, options) {
    const { id = `${Date.now()}-${Math.random().toString(36).slice(2, 8)}` } = data;
    const alive = setInterval(() => {
      if (this.state === 'open')
        this.call('bGetPreviewEnable').catch(() => {}); // a lost connection ends the job itself
    }, 5000);
    try {
      return fromPageData(await this.eventAfter(`After${name}`, {
        seconds: 600, accept: (text) => fromPageData(text).id === String(id), ...options,
      }, name, pageData({ ...data, id })));
    } finally {
      clearInterval(alive);
    }
  },
};

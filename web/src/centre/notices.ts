// SPDX-License-Identifier: Apache-2.0
// What the page has to say that is no alarm of a fibre: that the centre can't be reached, and what it refused.
import { byId } from '../dom';

let fromBackground = false;

export function notice(text: string, background = false): void {
  fromBackground = background;
  byId('notice').firstElementChild!.textContent = text;
  byId('notice').hidden = false;
}

// What was asked without anybody's hand has been answered again.
export function well(): void {
  if (fromBackground) byId('notice').hidden = true;
}

export function live(isLive: boolean): void {
  const lost = byId('lost');
  byId('link').textContent = isLive ? 'live' : 'not connected';
  if (!isLive && lost.hidden) {
    const at = new Date().toLocaleTimeString(undefined, { hour12: false });
    lost.textContent = `No connection to the centre since ${at}. What is shown is as it was then; the page goes on trying.`;
  }
  lost.hidden = isLive;
}

byId('dismiss-notice').addEventListener('click', () => (byId('notice').hidden = true));

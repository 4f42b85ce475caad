// The times of pictures between their arrival and their display.
import assert from 'node:assert/strict';
import test from 'node:test';
import { PictureTimes } from '../../../console/picture/picture_times.js';

/** A page whose clock and display the test controls. */
function page() {
  const self = {
    at: 0,
    isHidden: false,
    /** @type {(() => void)[]} */
    waiting: [],
    now: () => self.at,
    nextDisplay: (/** @type {() => void} */ act) => self.waiting.push(act),
    hidden: () => self.isHidden,
    display: () => {
      for (const act of self.waiting.splice(0)) act();
    },
  };
  return { self, times: new PictureTimes(self) };
}

test('a picture is reported when it was displayed, with the time for decoding and that for the display', () => {
  const { self, times } = page();
  self.at = 100;
  times.received(7);
  self.at = 104;
  times.drawn(7);
  assert.deepEqual(times.take(), [], 'it is not displayed yet');
  self.at = 112;
  self.display();
  assert.deepEqual(times.take(), [{ stamp: 7, received: 100, decoder: 4, screen: 8 }]);
  assert.deepEqual(times.take(), [], 'each picture is reported once');
});

test('pictures that were drawn before one display are all reported', () => {
  const { self, times } = page();
  for (const stamp of [1, 2]) {
    times.received(stamp);
    times.drawn(stamp);
  }
  self.at = 5;
  self.display();
  assert.deepEqual(
    times.take().map(({ stamp }) => stamp),
    [1, 2],
  );
});

test('pictures that are never drawn are not reported, and neither are unknown ones', () => {
  const { self, times } = page();
  times.received(1);
  times.received(2);
  times.drawn(2);
  times.drawn(2);
  times.drawn(1);
  times.drawn(9);
  self.display();
  assert.deepEqual(
    times.take().map(({ stamp }) => stamp),
    [2],
  );
});

test('in a hidden page, which is never displayed, the drawing counts', () => {
  const { self, times } = page();
  times.received(1);
  times.drawn(1);
  self.isHidden = true;
  times.received(2);
  self.at = 9;
  times.drawn(2);
  assert.deepEqual(
    times.take().map(({ stamp, screen }) => [stamp, screen]),
    [
      [1, 0],
      [2, 0],
    ],
  );
});

test('at most 60 pictures are remembered and reported', () => {
  const { self, times } = page();
  for (let stamp = 0; stamp < 200; stamp++) times.received(stamp);
  times.drawn(100);
  self.display();
  assert.deepEqual(times.take(), [], 'the oldest are forgotten');
  for (let stamp = 200; stamp < 400; stamp++) {
    times.received(stamp);
    times.drawn(stamp);
    if (stamp % 2) self.display();
  }
  const stamps = times.take().map(({ stamp }) => stamp);
  assert.equal(stamps.length, 60);
  assert.equal(stamps.at(-1), 399);
});

test('pictures of an ended stream are forgotten', () => {
  const { self, times } = page();
  times.received(1);
  times.clear();
  times.drawn(1);
  self.display();
  assert.deepEqual(times.take(), []);
});

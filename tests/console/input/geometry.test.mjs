// Positions and wheel movement between the page and the machine.
import assert from 'node:assert/strict';
import test from 'node:test';
import { fit, toWire, WheelMeter } from '../../../console/input/geometry.js';

test('a position is relative to the picture, and a position outside the picture is moved to its edge', () => {
  const picture = { width: 1280, height: 720 };
  assert.deepEqual(fit(picture, { width: 640, height: 640 }), { width: 640, height: 360 });
  const rect = { left: 100, top: 50, width: 640, height: 360 };
  assert.deepEqual(toWire({ x: -5, y: 9999 }, rect, picture), { x: 6, y: 32767 });
});

test('every pixel of every monitor can be reached', () => {
  // Each entry: the width of the desktop, then the left edge and the width of a monitor.
  for (const [whole, left, width] of [
    [1280, 0, 1280],
    [3840, 0, 1920],
    [3840, 1920, 1920],
    [5760, 1920, 1920],
    [3840, 0, 3840],
  ]) {
    for (let pixel = 0; pixel < width; pixel++) {
      const { x } = toWire(
        { x: pixel + 0.5, y: 0 },
        { left: 0, top: 0, width, height: 10 },
        { width, height: 10 },
      );
      const onDesktop = ((width - 1) * x) / 32767 + left;
      const dx = Math.trunc((onDesktop * 65535) / (whole - 1));
      const reached = Math.min(Math.floor((dx * whole) / 65536), whole - 1) - left;
      assert.equal(reached, pixel, `pixel ${pixel} of ${width} at ${left} of ${whole}`);
    }
  }
});

test('the wheel meter returns 120 for each notch and keeps the fraction', () => {
  const meter = new WheelMeter();
  assert.equal(meter.take({ deltaY: -100, deltaMode: 0 }), 120);
  assert.equal(meter.take({ deltaY: 3, deltaMode: 1 }), -120);
  const small = new WheelMeter();
  let sum = 0;
  for (let i = 0; i < 100; i++) sum += small.take({ deltaY: 1, deltaMode: 0 });
  assert.equal(sum, -120);
  assert.equal(small.take({ deltaY: NaN, deltaMode: 0 }), 0);
});

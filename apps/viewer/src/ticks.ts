// Where the marks of an axis go.

/** Multiples of 1, 2 or 5 times a power of ten inside an interval, about `count` of them. */
export function linearTicks(low: number, high: number, count: number): number[] {
  const span = high - low;
  if (!(span > 0) || !Number.isFinite(span)) {
    return [low];
  }
  const power = 10 ** Math.floor(Math.log10(span / count));
  const step = [1, 2, 5, 10].map((digit) => digit * power).find((size) => span / size <= count) ?? 10 * power;
  const ticks: number[] = [];
  for (let k = Math.ceil(low / step - 1e-9); k * step <= high + 1e-9 * step; ++k) {
    // Not a sum of steps, whose last digits would show; and no negative zero.
    ticks.push(Number((k * step).toPrecision(12)) + 0);
  }
  return ticks;
}

/** Of a logarithmic axis: powers of ten inside an interval of positive numbers; more where these are few. */
export function logTicks(low: number, high: number): number[] {
  const multiples = (digits: number[]): number[] => {
    const found: number[] = [];
    for (let power = Math.floor(Math.log10(low)); power <= Math.ceil(Math.log10(high)); ++power) {
      for (const digit of digits) {
        const tick = Number(`${digit}e${power}`);
        if (tick >= low * (1 - 1e-9) && tick <= high * (1 + 1e-9)) {
          found.push(tick);
        }
      }
    }
    return found;
  };
  const decades = multiples([1]);
  if (decades.length >= 3) {
    return decades;
  }
  const some = multiples([1, 2, 5]);
  return some.length >= 3 ? some : linearTicks(low, high, 5);
}

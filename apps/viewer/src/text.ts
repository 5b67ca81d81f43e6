// Numbers as texts, with the roundings of the command, so that page and terminal agree.

/** At most so many significant digits, without zeros at the end; very large and small ones with an exponent. */
export function formatNumber(value: number, digits = 6): string {
  if (!Number.isFinite(value)) {
    return Number.isNaN(value) ? "nan" : value > 0 ? "inf" : "-inf";
  }
  const [mantissa = "", exponent = "0"] = round(value, digits).split("e");
  const power = Number(exponent);
  const short = (text: string): string => (text.includes(".") ? text.replace(/\.?0+$/, "") : text);
  if (power < -4 || power >= digits) {
    return `${short(mantissa)}e${power < 0 ? "-" : "+"}${String(Math.abs(power)).padStart(2, "0")}`;
  }
  return short(Number(`${mantissa}e${exponent}`).toFixed(Math.max(0, digits - 1 - power)));
}

// As C does it: what is half-way goes to the even digit, such as medians of counts.
function round(value: number, digits: number): string {
  const [exact = "", exponent = "0"] = value.toExponential(100).split("e");
  const end = exact.indexOf(".") + digits;
  const kept = exact.slice(0, end).replace(/\.$/, "");
  const isHalf = /^50*$/.test(exact.slice(end));
  return isHalf && /[02468]$/.test(kept) ? `${kept}e${exponent}` : value.toExponential(digits - 1);
}

/** Of seconds, in the unit that suits them. */
export function formatTime(seconds: number): string {
  if (seconds < 1e-3) {
    return `${formatNumber(seconds * 1e6, 3)} us`;
  }
  return seconds < 1 ? `${formatNumber(seconds * 1e3, 3)} ms` : `${formatNumber(seconds, 3)} s`;
}

/** Of metres, in the unit that suits them. */
export function formatDistance(metres: number): string {
  return Math.abs(metres) < 1 ? `${formatNumber(metres * 1e3, 3)} mm` : `${formatNumber(metres, 3)} m`;
}

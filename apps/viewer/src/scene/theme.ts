/** Colours of what is drawn in the scene, as style.css says for light and dark. */
export interface Theme {
  ink: string;
  contact: string;
  obstacle: string;
  obstacleEdge: string;
  highlight: string;
  attached: string;
  start: string;
  goal: string;
  raw: string;
  grid: string;
  /** Of half spaces. */
  ground: string;
  ghostOpacity: number;
  /** Of links one after the other: light and dark take turns, so that neighbours differ without colour too. */
  links: string[];
}

const numLinkColours = 8;

export function readTheme(element: Element): Theme {
  const style = getComputedStyle(element);
  const value = (name: string): string => style.getPropertyValue(`--${name}`).trim();
  return {
    ink: value("ink"),
    contact: value("contact"),
    obstacle: value("obstacle"),
    obstacleEdge: value("obstacle-edge"),
    highlight: value("highlight"),
    attached: value("attached"),
    start: value("start"),
    goal: value("goal"),
    raw: value("raw-path"),
    grid: value("grid"),
    ground: value("ground"),
    ghostOpacity: Number(value("ghost-opacity")),
    links: Array.from({ length: numLinkColours }, (_, i) => value(`link-${i + 1}`)),
  };
}

/**
 * Calls back when the colours change between light and dark.
 *
 * @returns a function that ends this.
 */
export function onThemeChange(listener: () => void): () => void {
  const isDark = matchMedia("(prefers-color-scheme: dark)");
  isDark.addEventListener("change", listener);
  return () => {
    isDark.removeEventListener("change", listener);
  };
}

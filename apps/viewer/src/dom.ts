type Child = Node | string;

/** An element with a class and children; texts become text nodes, never markup. */
export function create<Name extends keyof HTMLElementTagNameMap>(
  name: Name,
  className = "",
  ...children: Child[]
): HTMLElementTagNameMap[Name] {
  const element = document.createElement(name);
  element.className = className;
  element.append(...children);
  return element;
}

/** A group of controls with a name for those who do not see it. */
export function createGroup(name: string, className: string, ...children: Child[]): HTMLElement {
  const group = create("div", className, ...children);
  group.setAttribute("role", "group");
  group.setAttribute("aria-label", name);
  return group;
}

const icons = {
  play: "M7 4.5v15l12-7.5z",
  pause: "M6.5 5h4v14h-4zM13.5 5h4v14h-4z",
  loop: "M7 7h9V4l5 4.5-5 4.5v-3H9v3H6V8a1 1 0 0 1 1-1zM17 17H8v3l-5-4.5L8 11v3h7v-3h3v5a1 1 0 0 1-1 1z",
  plus: "M11 5h2v6h6v2h-6v6h-2v-6H5v-2h6z",
  minus: "M5 11h14v2H5z",
  left: "M15.5 5 17 6.5 11.5 12 17 17.5 15.5 19l-7-7z",
  right: "M8.5 5 7 6.5 12.5 12 7 17.5 8.5 19l7-7z",
  up: "M5 15.5 6.5 17 12 11.5 17.5 17 19 15.5l-7-7z",
  down: "M5 8.5 6.5 7 12 12.5 17.5 7 19 8.5l-7 7z",
  home: "M12 4 3 11.5h2.5V20H10v-5h4v5h4.5v-8.5H21z",
} as const;

export type IconName = keyof typeof icons;

export function createIcon(name: IconName): SVGSVGElement {
  const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  svg.setAttribute("viewBox", "0 0 24 24");
  svg.setAttribute("aria-hidden", "true");
  svg.classList.add("icon");
  const path = document.createElementNS("http://www.w3.org/2000/svg", "path");
  path.setAttribute("d", icons[name]);
  svg.append(path);
  return svg;
}

export function createButton(name: string, content: Child, onClick: () => void): HTMLButtonElement {
  const button = create("button", "", content);
  button.type = "button";
  if (typeof content !== "string") {
    button.setAttribute("aria-label", name);
    button.title = name;
  }
  button.addEventListener("click", onClick);
  return button;
}

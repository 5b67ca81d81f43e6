import { create, createButton, createGroup, createIcon } from "./dom";
import { describePlace, type Motion } from "./motion";
import type { Playback } from "./playback";

const speeds = [0.1, 0.25, 0.5, 1, 2, 4];
const numSteps = 100;
const numStepsWithShift = 10;

/** Play, pause, the time, how fast, and whether it begins anew. */
export function createTransport(motion: Motion, playback: Playback): HTMLElement {
  const play = createButton("Play", createIcon("play"), () => {
    playback.playing = !playback.playing;
  });
  play.className = "play";

  const scrubber = create("input", "scrubber");
  scrubber.type = "range";
  scrubber.min = "0";
  scrubber.max = String(playback.duration);
  scrubber.step = "any";
  scrubber.setAttribute("aria-label", motion.unit === "seconds" ? "Time" : "Place on the path");
  scrubber.addEventListener("input", () => {
    playback.playing = false;
    playback.time = Number(scrubber.value);
  });

  const readout = create("span", "readout");

  const speed = create("select", "speed", ...speeds.map((value) => new Option(`${String(value)}×`, String(value))));
  speed.value = String(playback.speed);
  speed.setAttribute("aria-label", "Speed");
  speed.title = "Speed";
  speed.addEventListener("change", () => {
    playback.speed = Number(speed.value);
  });

  const loop = createButton("Loop", createIcon("loop"), () => {
    playback.loop = !playback.loop;
    loop.setAttribute("aria-pressed", String(playback.loop));
  });
  loop.setAttribute("aria-pressed", "false");

  const show = (): void => {
    const name = playback.playing ? "Pause" : "Play";
    if (play.title !== name) {
      play.replaceChildren(createIcon(playback.playing ? "pause" : "play"));
      play.setAttribute("aria-label", name);
      play.title = name;
    }
    const text = describeTime(motion, playback);
    scrubber.value = String(playback.time);
    scrubber.setAttribute("aria-valuetext", text);
    readout.textContent = text;
  };
  playback.onChange(show);
  show();
  return createGroup("Playback", "transport", play, scrubber, readout, speed, loop);
}

function describeTime(motion: Motion, { time, duration }: Playback): string {
  return motion.unit === "seconds"
    ? `${time.toFixed(2)} of ${duration.toFixed(2)} s`
    : describePlace(motion, time);
}

/**
 * Space plays and pauses; arrows, home and end move, wherever the focus is, unless the focused control uses the key.
 *
 * @param leave Ends this.
 */
export function listenToKeys(playback: Playback, leave: AbortSignal): void {
  const step = (event: KeyboardEvent): number =>
    (playback.duration / numSteps) * (event.shiftKey ? numStepsWithShift : 1);
  const actions: Record<string, (event: KeyboardEvent) => void> = {
    " ": () => {
      playback.playing = !playback.playing;
    },
    ArrowLeft: (event) => {
      move(playback.time - step(event));
    },
    ArrowRight: (event) => {
      move(playback.time + step(event));
    },
    Home: () => {
      move(0);
    },
    End: () => {
      move(playback.duration);
    },
  };
  const move = (time: number): void => {
    playback.playing = false;
    playback.time = time;
  };
  const act = (event: KeyboardEvent): void => {
    const action = actions[event.key];
    if (action && !event.altKey && !event.ctrlKey && !event.metaKey && !isUsedBy(event.target, event.key)) {
      event.preventDefault();
      action(event);
    }
  };
  document.addEventListener("keydown", act, { signal: leave });
}

function isUsedBy(target: EventTarget | null, key: string): boolean {
  if (!(target instanceof HTMLElement)) {
    return false;
  }
  if (target.matches(".scrubber")) {
    return false;
  }
  return target.matches("select, textarea, input:not([type=checkbox]), [contenteditable]") ||
    (key === " " && target.matches("button, a[href], summary, input"));
}

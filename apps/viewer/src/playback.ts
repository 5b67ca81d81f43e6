/** The one clock of the page: scene, plots and controls follow it and set it. */
export class Playback {
  loop = false;
  private currentTime = 0;
  private currentSpeed = 1;
  private isPlaying = false;
  private readonly listeners = new Set<() => void>();

  constructor(readonly duration: number) {}

  get time(): number {
    return this.currentTime;
  }
  set time(value: number) {
    const clamped = Math.min(Math.max(Number.isFinite(value) ? value : 0, 0), this.duration);
    if (clamped !== this.currentTime) {
      this.currentTime = clamped;
      this.notify();
    }
  }

  get playing(): boolean {
    return this.isPlaying;
  }
  /** Playing from the end begins anew. */
  set playing(value: boolean) {
    const plays = value && this.duration > 0;
    if (plays === this.isPlaying) {
      return;
    }
    this.isPlaying = plays;
    if (plays && this.currentTime >= this.duration) {
      this.currentTime = 0;
    }
    this.notify();
  }

  get speed(): number {
    return this.currentSpeed;
  }
  set speed(value: number) {
    if (value > 0 && value !== this.currentSpeed) {
      this.currentSpeed = value;
      this.notify();
    }
  }

  /** @returns a function that ends the subscription. */
  onChange(listener: () => void): () => void {
    this.listeners.add(listener);
    return () => this.listeners.delete(listener);
  }

  /** Goes on by that much of the viewer's time, while it plays. */
  tick(seconds: number): void {
    if (!this.isPlaying) {
      return;
    }
    const next = this.currentTime + seconds * this.currentSpeed;
    if (next < this.duration) {
      this.time = next;
    } else if (this.loop) {
      this.time = next % this.duration;
    } else {
      this.isPlaying = false;
      this.currentTime = this.duration;
      this.notify();
    }
  }

  private notify(): void {
    for (const listener of [...this.listeners]) {
      listener();
    }
  }
}

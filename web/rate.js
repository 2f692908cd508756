// How fast something goes, from what it was at some moments.

const kKeep = 5_000;

export class RateMeter {
  #moments = [];

  /** @return bytes a second over the last seconds; null while that cannot be said. */
  at(done, now) {
    const first = this.#moments[0];
    if (first !== undefined && done < this.#moments.at(-1).done) this.#moments = [];
    this.#moments.push({ done, now });
    while (this.#moments.length > 2 && now - this.#moments[0].now > kKeep) this.#moments.shift();
    const begin = this.#moments[0];
    const seconds = (now - begin.now) / 1000;
    return seconds < 0.5 || done === begin.done ? null : (done - begin.done) / seconds;
  }
}

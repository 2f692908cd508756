// The mesh's state as it changes: a stream of events, or questions every two seconds where there is
// no stream to be had. Each event is the whole state, so nothing is missed over a break.

import { ApiError, call, dataOf, post } from "./api.js";

const kRow = ["KALO.Core.Mesh", 1, "events"];
const kSilence = 30_000;    // the server says something every ten seconds
const kPollEvery = 2_000;
const kServerBusy = 7008;
const kPatience = 10_000;   // for one answer
const kPollsPerTry = 15;    // then the stream is tried again
const kPauses = [300, 1_000, 2_000, 3_000];

/** The lines of a stream of bytes. */
async function* linesOf(body, onBytes) {
  const reader = body.pipeThrough(new TextDecoderStream()).getReader();
  let rest = "";
  for (;;) {
    const { value, done } = await reader.read();
    if (done) return;
    onBytes();
    const lines = (rest + value).split("\n");
    rest = lines.pop();
    yield* lines;
  }
}

export class Live {
  #handlers;
  #stop = null;
  #failures = 0;

  /** @param handlers `state(data)`, `lost()` when the router does not answer, `ended(error)` when
   *         the session is over. */
  constructor(handlers) {
    this.#handlers = handlers;
  }

  start() {
    this.stop();
    this.#stop = new AbortController();
    this.#failures = 0;
    this.#run(this.#stop.signal);
  }

  stop() {
    this.#stop?.abort();
    this.#stop = null;
  }

  async #run(signal) {
    while (!signal.aborted) {
      try {
        await this.#listen(signal);
      } catch (error) {
        if (signal.aborted) return;
        const answers = error instanceof ApiError && error.code > 0;
        if (answers && error.isFinal) return this.#handlers.ended(error);
        if (answers) await this.#poll(signal);
        else this.#lose();
      }
      await pause(kPauses[Math.min(this.#failures, kPauses.length - 1)]);
    }
  }

  async #listen(signal) {
    const own = new AbortController();
    const abort = () => own.abort();
    signal.addEventListener("abort", abort);
    let watchdog = setTimeout(abort, kSilence);
    try {
      const response = await post(...kRow, {}, {
        headers: { Accept: "text/event-stream" }, signal: own.signal,
      });
      const type = response.headers.get("Content-Type") ?? "";
      if (!type.startsWith("text/event-stream")) {
        this.#tell(dataOf(await response.text()));
        throw new ApiError(kServerBusy, "");  // it answers, but in one piece: ask again and again
      }
      const onBytes = () => {
        clearTimeout(watchdog);
        watchdog = setTimeout(abort, kSilence);
      };
      for await (const line of linesOf(response.body, onBytes)) {
        if (line.startsWith("data: ")) this.#take(line.slice("data: ".length));
      }
    } finally {
      clearTimeout(watchdog);
      signal.removeEventListener("abort", abort);
    }
  }

  // The mesh service may be away for a moment; the stream is not.
  #take(text) {
    try {
      this.#tell(dataOf(text));
    } catch (error) {
      if (error.isFinal) throw error;
      this.#handlers.troubled(error);
    }
  }

  async #poll(signal) {
    for (let i = 0; i < kPollsPerTry && !signal.aborted; ++i) {
      try {
        this.#tell(await call(...kRow, {}, { signal: AbortSignal.timeout(kPatience) }));
      } catch (error) {
        if (error.isFinal) return;  // the next listening tells
        if (error.code === 0) return this.#lose();
        this.#handlers.troubled(error);
      }
      await pause(kPollEvery);
    }
  }

  #tell(data) {
    this.#failures = 0;
    this.#handlers.state(data);
  }

  #lose() {
    ++this.#failures;
    this.#handlers.lost();
  }
}

function pause(milliseconds) {
  return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

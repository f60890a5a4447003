// SPDX-License-Identifier: Apache-2.0
// The engine in a thread of its own, so that the page never waits for it. It is handed the bytes of the WebAssembly
// and asks nobody for anything.
import createEngine, { EngineModule } from 'engine-glue';
import { Curve, makeCurve } from './curve';

export type Order =
  | { number: number; what: 'start'; wasm: ArrayBuffer }
  | { number: number; what: 'warm' }
  | { number: number; what: 'open'; name: string; bytes: ArrayBuffer }
  | { number: number; what: 'curve'; trace: number; points: number }
  | { number: number; what: 'ask'; request: object };
export type Reply = { number: number; value?: unknown; failure?: string };

declare const WARM_BASE64: string;
const WARM_ROUNDS = 4; // after which a first analysis takes a sixth of the time that it took at once

let engine: EngineModule | null = null;

function withText<T>(module: EngineModule, text: string, work: (address: number) => T): T {
  const room = module.lengthBytesUTF8(text) + 1;
  const address = module._malloc(room);
  module.stringToUTF8(text, address, room);
  try {
    return work(address);
  } finally {
    module._free(address);
  }
}

function open(module: EngineModule, name: string, bytes: ArrayBuffer): string {
  const address = module._malloc(Math.max(bytes.byteLength, 1));
  module.HEAPU8.set(new Uint8Array(bytes), address);
  try {
    return withText(module, name, (text) =>
      module.UTF8ToString(module._ReflyzeOpen(text, address, bytes.byteLength)),
    );
  } finally {
    module._free(address);
  }
}

// Calls may let the memory grow, after which what was seen of it before is no more: a copy is made at once.
function copyOf(module: EngineModule, address: number, points: number): Float64Array {
  return module.HEAPF64.slice(address / 8, address / 8 + points);
}

function answer(module: EngineModule, request: object): string {
  return withText(module, JSON.stringify(request), (text) => module.UTF8ToString(module._ReflyzeAnswer(text)));
}

// Browsers compile a function when it is first called, and well when it is called often. Analyses of a short link that is
// at hand let them do so while the user still looks for a file.
function warm(module: EngineModule): void {
  const bytes = Uint8Array.from(atob(WARM_BASE64), (letter) => letter.charCodeAt(0)).buffer;
  const { traces } = JSON.parse(open(module, 'warm', bytes)) as { traces: { id: number }[] };
  for (let i = 0; i < WARM_ROUNDS; ++i) answer(module, { do: 'analyse', trace: traces[0].id });
  answer(module, { do: 'close', trace: traces[0].id });
}

async function carryOut(order: Order): Promise<unknown> {
  if (order.what === 'start') {
    engine = await createEngine({ wasmBinary: order.wasm });
    return null;
  }
  if (!engine) throw new Error('the engine has not started');
  const module = engine;
  if (order.what === 'open') return open(module, order.name, order.bytes);
  if (order.what === 'ask') return answer(module, order.request);
  if (order.what === 'warm') return warm(module);
  const km = copyOf(module, module._ReflyzeDistances(order.trace), order.points);
  return makeCurve(km, copyOf(module, module._ReflyzeLevels(order.trace), order.points));
}

function buffersOf(value: unknown): ArrayBuffer[] {
  const curve = value as Curve | null;
  if (!curve || typeof curve !== 'object' || !curve.details) return [];
  const arrays = [curve.km, curve.db, ...curve.details.flatMap((detail) => [detail.low, detail.high])];
  return arrays.map((array) => array.buffer as ArrayBuffer);
}

const scope = self as unknown as DedicatedWorkerGlobalScope;
scope.onmessage = async (event: MessageEvent<Order>) => {
  const reply: Reply = { number: event.data.number };
  try {
    reply.value = await carryOut(event.data);
  } catch (error) {
    reply.failure = String(error);
  }
  scope.postMessage(reply, buffersOf(reply.value));
};

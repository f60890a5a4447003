// SPDX-License-Identifier: Apache-2.0
// The engine as the compiler to WebAssembly leaves it; scripts/build-web says where it is.
declare module 'engine-glue' {
  export interface EngineModule {
    HEAPU8: Uint8Array;
    HEAPF64: Float64Array;
    _malloc(bytes: number): number;
    _free(address: number): void;
    _ReflyzeOpen(name: number, bytes: number, size: number): number;
    _ReflyzeAnswer(request: number): number;
    _ReflyzeLevels(trace: number): number;
    _ReflyzeDistances(trace: number): number;
    UTF8ToString(address: number): string;
    stringToUTF8(text: string, address: number, room: number): void;
    lengthBytesUTF8(text: string): number;
  }
  export default function createEngine(options: object): Promise<EngineModule>;
}

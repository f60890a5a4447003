// SPDX-License-Identifier: Apache-2.0
// Files that are dropped or opened, and folders of them, however deep. Nothing is read but what the user gives.

export interface Given {
  name: string; // with its path below the folder that was given
  read(): Promise<ArrayBuffer>;
}

const IS_TRACE = /\.m?sor$/i; // what counts in folders; a file by itself may be called anything

const givenFile = (file: File, name = file.name): Given => ({ name, read: () => file.arrayBuffer() });

// "f_2.sor" stands before "f_10.sor".
const natural = (a: Given, b: Given): number => a.name.localeCompare(b.name, 'en', { numeric: true });

async function entriesOf(folder: FileSystemDirectoryEntry): Promise<FileSystemEntry[]> {
  const reader = folder.createReader();
  const all: FileSystemEntry[] = [];
  // A reader gives a hundred at a time, until it gives none.
  for (;;) {
    const some = await new Promise<FileSystemEntry[]>((resolve, reject) => reader.readEntries(resolve, reject));
    if (some.length === 0) return all;
    all.push(...some);
  }
}

async function below(entry: FileSystemEntry, path: string): Promise<Given[]> {
  const name = path + entry.name;
  if (entry.isDirectory) {
    const entries = await entriesOf(entry as FileSystemDirectoryEntry);
    return (await Promise.all(entries.map((one) => below(one, `${name}/`)))).flat();
  }
  if (!IS_TRACE.test(entry.name)) return [];
  const file = await new Promise<File>((resolve, reject) => (entry as FileSystemFileEntry).file(resolve, reject));
  return [givenFile(file, name)];
}

export async function dropped(transfer: DataTransfer): Promise<Given[]> {
  // The list is empty once this turn has ended.
  const entries = [...transfer.items].map((item) => item.webkitGetAsEntry?.() ?? null);
  const files = [...transfer.files];
  const folders = entries.filter((entry): entry is FileSystemEntry => entry?.isDirectory === true);
  const single = files.filter((_, i) => entries[i]?.isDirectory !== true).map((file) => givenFile(file));
  const found = (await Promise.all(folders.map((folder) => below(folder, '')))).flat();
  return [...single, ...found].sort(natural);
}

export function chosen(input: HTMLInputElement, folder: boolean): Given[] {
  const files = [...(input.files ?? [])];
  input.value = '';
  return files
    .filter((file) => !folder || IS_TRACE.test(file.name))
    .map((file) => givenFile(file, file.webkitRelativePath || file.name))
    .sort(natural);
}

// Traces that came with the page.
export function enclosed(text: string): Given[] {
  const list = JSON.parse(text) as { name: string; sor: string }[];
  return list.map(({ name, sor }) => ({
    name,
    read: async () => Uint8Array.from(atob(sor), (letter) => letter.charCodeAt(0)).buffer,
  }));
}

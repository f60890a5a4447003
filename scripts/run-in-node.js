// SPDX-License-Identifier: Apache-2.0
// Runs the program, built as WebAssembly, once for each line of standard input, whose words are the arguments:
// node run-in-node.js PROGRAM.js. Says what it runs and with what status it ended.
const fs = require('fs');

const lines = fs.readFileSync(0, 'utf8').split('\n').filter((line) => line !== '');
const say = (text) => fs.writeSync(1, text + '\n');

require(process.argv[2])().then((program) => {
  for (const line of lines) {
    say('> ' + line);
    let status;
    try {
      status = program.callMain(line.split(' '));
    } catch (error) {
      status = error;
    }
    say('status ' + status);
  }
});

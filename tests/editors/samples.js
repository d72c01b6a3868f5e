// Reads samples.txt: blocks of lines with the kind of each of their characters.

'use strict';
const fs = require('fs');
const path = require('path');

// Gives a list of { title, lines, kinds }.
function samples() {
  const text = fs.readFileSync(path.join(__dirname, 'samples.txt'), 'utf8');
  const blocks = [];
  let block = null;
  for (const line of text.split('\n').slice(text.split('\n').indexOf('keys and values'))) {
    if (line.startsWith('|')) {
      block.lines.push(line.slice(1));
    } else if (line.startsWith(':')) {
      block.kinds.push(line.slice(1).padEnd(block.lines[block.lines.length - 1].length));
    } else if (line) {
      block = { title: line, lines: [], kinds: [] };
      blocks.push(block);
    }
  }
  for (const { title, lines, kinds } of blocks)
    lines.forEach((line, i) => {
      if (lines.length !== kinds.length || line.length !== kinds[i].length)
        throw new Error(`samples.txt: '${title}': '${line}' has no kinds or more than its characters`);
    });
  return blocks;
}

module.exports = { samples };

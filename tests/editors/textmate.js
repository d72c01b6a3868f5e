// Tells the kind of each character as the TextMate grammar sees it.

'use strict';
const fs = require('fs');
const path = require('path');
const oniguruma = require('vscode-oniguruma');
const textmate = require('vscode-textmate');

// The most telling scope of a character decides; the first row that is in its name wins.
const kKinds = [
  ['constant.character.escape', 'e'],
  ['variable.other.reference', 'r'],
  ['invalid.illegal', 'x'],
  ['keyword.control.end', 'm'],
  ['comment.block.unread', 'z'],
  ['comment.line.ignored', 'i'],
  ['comment.line', 'c'],
  ['entity.name.tag', 'k'],
  ['storage.type.literal', 'L'],
  ['storage.type', 'b'],
  ['string.unquoted.argument', 'a'],
  ['string.unquoted.literal', 'l'],
  ['support.function', 'f'],
  ['entity.name.function', 'f'],
  ['punctuation.section.arguments', 'f'],
  ['constant.numeric', 'v'],
  ['string.unquoted', 'v'],
];

function kindOf(scopes) {
  const row = kKinds.find(([name]) => scopes.some((scope) => scope.startsWith(name)));
  return row ? row[1] : ' ';
}

async function load(file) {
  const wasm = fs.readFileSync(require.resolve('vscode-oniguruma/release/onig.wasm'));
  await oniguruma.loadWASM(wasm.buffer.slice(wasm.byteOffset, wasm.byteOffset + wasm.byteLength));
  const registry = new textmate.Registry({
    onigLib: Promise.resolve({
      createOnigScanner: (patterns) => new oniguruma.OnigScanner(patterns),
      createOnigString: (text) => new oniguruma.OnigString(text),
    }),
    loadGrammar: async () => textmate.parseRawGrammar(fs.readFileSync(file, 'utf8'), file),
  });
  return registry.loadGrammar('source.pf');
}

// A string of kinds for each line.
function kindsOf(grammar, lines) {
  let state = textmate.INITIAL;
  return lines.map((line) => {
    const result = grammar.tokenizeLine(line, state);
    state = result.ruleStack;
    let kinds = '';
    for (const token of result.tokens)
      kinds += kindOf(token.scopes).repeat(Math.min(token.endIndex, line.length) - token.startIndex);
    return kinds;
  });
}

module.exports = { load, kindsOf };

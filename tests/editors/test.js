// Compares what the TextMate grammar and the Vim syntax make of parameter files with
// what samples.txt says, with each other, and with the keys that the library reads.
//
// usage: test.js SOURCE_DIRECTORY TOOL [vim]

'use strict';
const { execFileSync } = require('child_process');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { samples } = require('./samples');
const textmate = require('./textmate');

const [source, tool, withVim] = process.argv.slice(2);
const problems = [];

// Reports the first line that differs. Blanks may be anything.
function compare(who, title, lines, wanted, got) {
  const blind = (i, kinds) => [...lines[i]].map((c, k) => (/\s/.test(c) ? ' ' : kinds[k])).join('');
  const i = lines.findIndex((_, k) => blind(k, wanted[k]) !== blind(k, got[k]));
  if (i >= 0)
    problems.push(`${who}: ${title}, line ${i + 1}\n    ${lines[i]}\n    ${blind(i, wanted[i])}` +
      `   wanted\n    ${blind(i, got[i])}   got`);
}

// The keys that the library finds, in a tree printed as JSON.
function readKeys(file) {
  let json;
  try {
    json = execFileSync(tool, ['pf', 'show', '--json', file], { stdio: ['ignore', 'pipe', 'ignore'] });
  } catch (error) {
    json = error.stdout;  // the part before an error is there
  }
  const keys = new Set();
  JSON.parse(json, function add(key, value) {
    if (!Array.isArray(this) && key)  // the whole tree has an empty one
      keys.add(key);
    return value;
  });
  return keys;
}

// The keys that are shown as such, each on one line, without escapes, and with a value.
function shownKeys(lines, kinds) {
  const keys = new Set();
  lines.forEach((line, i) => {
    const match = /k+(?: +k+)*/.exec(kinds[i]);
    if (!match || /\\|&Undef\{\}|^ *\S+ +\}|^[^"]*"[^"]*$/.test(line))
      return;
    const key = line.substr(match.index, match[0].length).replace(/^(["'])(.*)\1$/, '$2');
    if (key)
      keys.add(key);
  });
  return keys;
}

// Each key that the library reads is shown as one, and the other way round. Gives how
// many there are.
function compareKeys({ title, lines, textmate: kinds, file }) {
  const read = readKeys(file);
  const shown = shownKeys(lines, kinds);
  // A key with an escape reads otherwise than it is written.
  const escapes = lines.some((line) => line.includes('\\'));
  for (const key of read)
    if (!escapes && !key.includes('\n') && !shown.has(key))
      problems.push(`${title}: '${key}' is a key and not shown as one`);
  for (const key of shown)
    if (!read.has(key))
      problems.push(`${title}: '${key}' is shown as a key and is none`);
  return read.size;
}

// The kinds as Vim sees them, for each file.
function vimKinds(files, directory) {
  const out = path.join(directory, 'kinds');
  execFileSync('vim', ['-N', '-u', 'NONE', '-i', 'NONE', '-n', '-es', '-S',
    path.join(__dirname, 'kinds.vim')], {
    env: { ...process.env, PF_VIM: path.join(source, 'editors/vim'), PF_OUT: out, PF_FILES: files.join('\n'), HOME: directory },
    stdio: 'ignore', timeout: 60000,
  });
  const kinds = fs.readFileSync(out, 'utf8').split('\n');
  return files.map((file) => {
    const end = kinds.indexOf('.');
    const own = kinds.splice(0, end + 1).slice(0, -1);
    return own.map((line) => line.slice(1));
  });
}

// Follows the extension's own description to the grammar, as the editor does.
function grammarOfExtension() {
  const extension = path.join(source, 'editors/vscode');
  const read = (file) => JSON.parse(fs.readFileSync(path.join(extension, file), 'utf8'));
  const { languages: [language], grammars: [grammar] } = read('package.json').contributes;
  const { indentationRules: indentation, comments } = read(language.configuration);
  const holds = (what, is) => is || problems.push(`editors/vscode: ${what}`);
  holds('the grammar is of another language', grammar.language === language.id);
  holds('the grammar has another scope', read(grammar.path).scopeName === grammar.scopeName);
  holds('.pf is not its extension', language.extensions.includes('.pf'));
  holds('comments begin with #', comments.lineComment === '#');
  holds('a table is not indented', new RegExp(indentation.increaseIndentPattern).test('a &Arr{'));
  holds('a brace is not put back', new RegExp(indentation.decreaseIndentPattern).test('  }'));
  return path.join(extension, grammar.path);
}

function readText(title) {
  const text = fs.readFileSync(path.join(source, title), 'utf8');
  return { title, lines: text.replace(/\n$/, '').split('\n') };
}

function filesOf(directory) {
  return fs.readdirSync(path.join(source, directory)).map((name) => path.join(directory, name));
}

async function main() {
  const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'editors.'));
  const grammar = await textmate.load(grammarOfExtension());
  const texts = [...samples(), ...filesOf('data/pf').map(readText)];
  let keys = 0;
  const prepare = (text, i) => {
    text.file = path.join(directory, `${i}.pf`);
    fs.writeFileSync(text.file, text.lines.join('\n') + '\n');
    text.textmate = textmate.kindsOf(grammar, text.lines);
  };
  texts.forEach((text, i) => {
    prepare(text, i);
    if (text.kinds)
      compare('TextMate', text.title, text.lines, text.kinds, text.textmate);
    else if (!text.textmate.join('').includes('k') || !text.textmate.join('').includes('c'))
      problems.push(`${text.title}: has no keys or no comments`);
    keys += compareKeys(text);
  });
  if (withVim === 'vim') {
    // Of these texts there is no more to say than that both see the same.
    const more = filesOf('fuzz/corpus/pf').map(readText);
    more.forEach((text, i) => prepare(text, texts.length + i));
    const all = [...texts, ...more];
    vimKinds(all.map((text) => text.file), directory).forEach((kinds, i) =>
      compare('Vim', all[i].title, all[i].lines, all[i].kinds || all[i].textmate, kinds));
  }
  fs.rmSync(directory, { recursive: true });
  problems.forEach((problem) => console.log(problem));
  const lines = texts.reduce((sum, text) => sum + text.lines.length, 0);
  console.log(`${lines} lines, ${keys} keys, ${problems.length} problems`);
  process.exit(problems.length ? 1 : 0);
}

main();

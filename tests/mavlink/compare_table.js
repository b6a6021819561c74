// compare_table.js: compares the table of messages on standard input with that of the package mavlink-mappings.
const fs = require('fs');
const mappings = require('mavlink-mappings');

const known = {};
for (const set of ['minimal', 'standard', 'common']) Object.assign(known, mappings[set] && mappings[set].REGISTRY);
const theirs = [];
const ours = fs.readFileSync(0, 'utf8').trimEnd().split('\n');
for (const line of ours.filter((text) => !text.startsWith(' '))) {
  const message = known[Number(line.split(' ')[1])];
  if (!message) {
    console.error(`not known there: ${line}`);
    process.exit(1);
  }
  theirs.push(`${message.MSG_NAME} ${message.MSG_ID} ${message.MAGIC_NUMBER} ${message.PAYLOAD_LENGTH}`);
  for (const field of message.FIELDS) {
    theirs.push(`  ${field.source} ${field.offset} ${field.size} ${field.length} ${field.extension ? 'later' : 'base'}`);
  }
}
let differences = 0;
for (let i = 0; i < Math.max(ours.length, theirs.length); ++i) {
  if (ours[i] === theirs[i]) continue;
  ++differences;
  console.error(`here:  ${ours[i]}\nthere: ${theirs[i]}`);
}
const messages = theirs.filter((text) => !text.startsWith(' ')).length;
console.log(`${messages} messages, ${theirs.length - messages} fields compared, ${differences} lines differ`);
process.exit(differences === 0 && messages > 0 ? 0 : 1);

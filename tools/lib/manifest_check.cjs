// What tools/manifest-check.sh runs: every document of a file as a literal of the type that it names.
const fs = require('fs');
const path = require('path');
const ts = require('typescript');
const yaml = require('yaml');

/// What is wrong with one document, a sentence each; empty: nothing.
function faultsOf(document) {
  const file = path.join(__dirname, 'document.ts');
  fs.writeFileSync(file, `import {${document.kind}} from 'kubernetes-types/${document.apiVersion}';\n` +
                         `export const document: ${document.kind} = ${JSON.stringify(document, null, 1)};\n`);
  const options = {noEmit: true, strict: true, types: [], moduleResolution: ts.ModuleResolutionKind.Node10};
  return ts.getPreEmitDiagnostics(ts.createProgram([file], options))
      .map((fault) => ts.flattenDiagnosticMessageText(fault.messageText, ' '));
}

const documents = yaml.parseAllDocuments(fs.readFileSync(process.argv[2], 'utf8')).map((one) => one.toJS());
const broken = {
  'a number that is none': (job) => { job.spec.completions = 'four'; },
  'a misspelt key': (job) => { job.spec.template.spec.containers[0].resource = {}; },
  'a container without a name': (job) => { delete job.spec.template.spec.containers[0].name; },
  'an unknown kind': (job) => { job.kind = 'Jobb'; },
};
let failed = documents.length === 0;
for (const [what, change] of Object.entries(broken)) {
  const copy = structuredClone(documents[0]);
  change(copy);
  const faults = faultsOf(copy);
  console.log(`${what}: ${faults.length ? 'refused' : 'NOT OK, taken'}`);
  failed = failed || !faults.length;
}
for (const document of documents) {
  const faults = faultsOf(document);
  console.log(`${document.kind} ${document.metadata.name}: ${faults.length ? 'NOT OK, ' + faults.join('; ') : 'valid'}`);
  failed = failed || faults.length > 0;
}
process.exit(failed ? 1 : 0);

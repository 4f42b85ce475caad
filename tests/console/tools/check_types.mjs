// Type check of the console and of its tests: TypeScript's own findings, and two rules that TypeScript does
// not have: no explicit `any` in a type, and private members by `#` instead of `@private`. Exits with 1 on
// any finding.
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import ts from 'typescript';

const ROOT = join(dirname(fileURLToPath(import.meta.url)), '../../..');
const PROJECTS = ['console/jsconfig.json', 'tests/console/jsconfig.json'];
const BANNED = new Map([
  [ts.SyntaxKind.AnyKeyword, '`any` switches type checking off; use `unknown` or the real type.'],
  [ts.SyntaxKind.JSDocAllType, '`*` means `any`; use `unknown` or the real type.'],
  [ts.SyntaxKind.JSDocPrivateTag, 'A private member has a name that begins with #.'],
]);

/** @param {string} file a jsconfig.json */
function programOf(file) {
  const { config, error } = ts.readConfigFile(file, ts.sys.readFile);
  if (error) throw new Error(ts.flattenDiagnosticMessageText(error.messageText, '\n'));
  const { fileNames, options } = ts.parseJsonConfigFileContent(config, ts.sys, dirname(file), {}, file);
  if (!fileNames.length) throw new Error(`${file} contains no file`);
  return ts.createProgram(fileNames, options);
}

/**
 * @param {ts.SourceFile} file
 * @returns {ts.Diagnostic[]}
 */
function bannedIn(file) {
  /** @type {ts.Diagnostic[]} */
  const found = [];
  const visit = (/** @type {ts.Node} */ node) => {
    const messageText = BANNED.get(node.kind);
    if (messageText) {
      const [start, length] = [node.getStart(file), node.getWidth(file)];
      found.push({ file, start, length, messageText, category: ts.DiagnosticCategory.Error, code: 0 });
    }
    for (const child of node.getChildren(file)) visit(child);
  };
  visit(file);
  return found;
}

/**
 * The findings by their place in the code. The tests' project reads files of the console again, so a finding
 * can occur twice.
 * @type {Map<string, ts.Diagnostic>}
 */
const findings = new Map();
for (const project of PROJECTS) {
  const program = programOf(join(ROOT, project));
  const own = program.getSourceFiles().filter(({ fileName }) => !fileName.includes('/node_modules/'));
  for (const finding of [...ts.getPreEmitDiagnostics(program), ...own.flatMap(bannedIn)])
    findings.set(`${finding.file?.fileName}:${finding.start}:${finding.code}`, finding);
}
const host = { getCurrentDirectory: () => ROOT, getNewLine: () => '\n', getCanonicalFileName: String };
process.stderr.write(ts.formatDiagnostics([...findings.values()], host));
process.exit(findings.size ? 1 : 0);

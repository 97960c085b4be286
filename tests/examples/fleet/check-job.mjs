// Checks a Job against Kubernetes' published schemas: node check-job.mjs FOLDER < job.yaml, with the packages in
// FOLDER. What no schema knows is a mistake, too.
import { readFileSync, readdirSync } from "node:fs";
import { createRequire } from "node:module";
import { pathToFileURL } from "node:url";

const packages = process.argv[2] + "/node_modules";
const yaml = createRequire(packages + "/")("yaml");
const { Job } = await import(pathToFileURL(packages + "/kubernetes-models/batch/v1/Job.js"));

const document = yaml.parse(readFileSync(0, "utf8"), { strict: true });
new Job(document).validate();

const known = new Set(["apiVersion", "kind"]);
for (const folder of ["kubernetes-models/batch/v1", "kubernetes-models/v1",
                      "@kubernetes-models/apimachinery/apis/meta/v1"])
    for (const file of readdirSync(packages + "/" + folder).filter(name => name.endsWith(".d.ts")))
        for (const [, name] of readFileSync(`${packages}/${folder}/${file}`, "utf8").matchAll(/^ +"(\w+)"\??:/gm))
            known.add(name);

const namesOfTheirOwn = ["labels", "requests", "limits"];
function look(value, path) {
    if (value === null || typeof value !== "object")
        return;
    for (const [key, below] of Object.entries(value)) {
        if (!Array.isArray(value) && !known.has(key))
            throw new Error(`no schema knows ${path}/${key}`);
        if (!namesOfTheirOwn.includes(key))
            look(below, path + "/" + key);
    }
}
look(document, "");
console.log("fits");

"""The shipped Kubernetes manifest cannot run here; this checks that its parts agree: the Indexed
Job runs `velmora batch` with the completion index and as many tasks as completions, every
mounted volume is declared, every path a command uses lies on a volume of its container, and the
tables flow from the tables Job through the shared volume to the node-local copy the batch reads.

Usage: kubernetes_job_test.py MANIFEST.yaml (exit 77: skipped)."""
import re
import shlex
import sys

try:
    import yaml
except ImportError:
    print("SKIP: /usr/bin/python3 has no yaml module (Debian: python3-yaml)")
    sys.exit(77)


def command_text(container):
    return " ".join(container.get("command", []) + container.get("args", []))


def mounts(container):
    return {m["mountPath"]: m for m in container.get("volumeMounts", [])}


def option(words, name):
    return words[words.index(name) + 1]


def check_pod(pod, failures):
    volumes = {v["name"] for v in pod["volumes"]}
    for container in pod.get("initContainers", []) + pod["containers"]:
        where = container["name"]
        for mount in container.get("volumeMounts", []):
            if mount["name"] not in volumes:
                failures.append(f"{where}: mounts undeclared volume {mount['name']}")
        for path in re.findall(r"(?<![\w$])/[\w./*-]+", command_text(container)):
            if path.startswith("/bin/"):
                continue
            if not any(path == p or path.startswith(p.rstrip("/") + "/") for p in mounts(container)):
                failures.append(f"{where}: {path} lies on no volume it mounts")


def main():
    documents = [d for d in yaml.safe_load_all(open(sys.argv[1])) if d]
    jobs = {d["metadata"]["name"]: d for d in documents if d["kind"] == "Job"}
    failures = []
    indexed = [j for j in jobs.values() if j["spec"].get("completionMode") == "Indexed"]
    if len(indexed) != 1 or "velmora-tables" not in jobs:
        print("FAIL: expected one Indexed Job and the velmora-tables Job")
        return 1
    batch, tables = indexed[0], jobs["velmora-tables"]
    for job in (batch, tables):
        check_pod(job["spec"]["template"]["spec"], failures)

    pod = batch["spec"]["template"]["spec"]
    run = command_text(pod["containers"][0])
    words = shlex.split(run.replace('"$JOB_COMPLETION_INDEX"', "INDEX"))
    if "velmora batch" not in run or option(words, "--task") != "INDEX":
        failures.append("the batch container does not run velmora batch --task $JOB_COMPLETION_INDEX")
    if int(option(words, "--tasks")) != batch["spec"]["completions"]:
        failures.append("--tasks differs from the Job's completions")

    tables_words = tables["spec"]["template"]["spec"]["containers"][0]["command"]
    manifest = words[words.index("batch") + 1]
    if tables_words[:3] != ["velmora", "batch", "tables"] or tables_words[3] != manifest:
        failures.append("the tables Job does not prepare the batch's manifest")
    copy = shlex.split(command_text(pod["initContainers"][0]).split("-c", 1)[1])
    source, destination = copy[-2], copy[-1]
    if source.rsplit("/", 1)[0] != option(tables_words, "-t"):
        failures.append(f"the copy reads {source}, the tables Job writes {option(tables_words, '-t')}")
    if destination.rstrip("/") != option(words, "-t"):
        failures.append(f"the copy writes {destination}, the batch reads {option(words, '-t')}")
    node_local = {v["name"] for v in pod["volumes"] if "emptyDir" in v}
    batch_mounts = mounts(pod["containers"][0])
    if batch_mounts.get(option(words, "-t"), {}).get("name") not in node_local:
        failures.append("the batch's tables are not on a node-local emptyDir volume")

    for failure in failures:
        print("FAIL:", failure)
    print("ok" if not failures else f"{len(failures)} failure(s)")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

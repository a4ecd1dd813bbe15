#!/usr/bin/env bash
# The dashboard as Grafana imports it: a schema version, the data source a variable that every
# panel and query uses, and queries that name only series the daemon writes.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
json=$root/packaging/qorclustd-dashboard.json
jq -e '.schemaVersion >= 36 and .uid != null and ([.templating.list[]
  | select(.name == "datasource" and .type == "datasource" and .query == "prometheus")] | length == 1)
  and ([.panels[] | .datasource.uid, (.targets[] | .datasource.uid)] | all(. == "${datasource}"))
  and ([.panels[] | .targets | length > 0] | all)' "$json" >/dev/null ||
  { echo "not a dashboard Grafana imports with its data source as a variable"; exit 1; }
written=$(grep -oE '"qorclustd_[a-z_]+"' "$root/src/observe/prom_metrics.cpp" | tr -d '"' | sort -u)
for name in $(jq -r '.panels[].targets[].expr' "$json" | grep -oE 'qorclustd_[a-z_]+' | sort -u); do
  grep -qx "$name" <<<"$written" || { echo "the daemon writes no $name"; exit 1; }
done

#!/bin/sh
# What the product's CI runs: every mistake of the scene files, then every scenario. Fails when
# either finds something, or when a scene is in no scenario.
set -eu
cd "$(dirname "$0")"
tarquel-lab check --strict --device devices/aster.yaml scenes
tarquel-lab run --summary --coverage-limit 100 --junit results.xml scenarios

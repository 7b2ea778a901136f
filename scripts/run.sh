#!/usr/bin/env bash
# Builds the launcher and starts it against a local demo patch server.
set -euo pipefail
exec "$(dirname "$0")/../demo/run-demo.sh" "$@"

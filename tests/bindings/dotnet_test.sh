#!/bin/sh
# dotnet_test.sh SOURCE: compiles and runs the tests of the package for .NET with mono.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The compiler and what it loads are not to be sanitized.
LD_PRELOAD= mcs -warnaserror -out:"$work/tests.exe" "$1/tests/bindings/dotnet_test.cs" "$1"/bindings/dotnet/*.cs
mkdir "$work/home"
XDG_CONFIG_HOME=$work/home mono "$work/tests.exe"

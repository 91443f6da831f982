#!/usr/bin/env python3
"""The property sheet and the sample's project of the package that PACKAGE names are XML of MSBuild, and each file and folder
that they name is in the package."""
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

NAMESPACE = "{http://schemas.microsoft.com/developer/msbuild/2003}"
package = Path(sys.argv[1]).resolve()
problems = []


def read(path):
    root = ElementTree.parse(path).getroot()
    if root.tag != NAMESPACE + "Project":
        problems.append(f"{path.name} isn't a project of MSBuild")
    return root


def check(owner, path):
    """Windows' separators and its disregard of case; here the case has to be right as well."""
    place = (owner.parent / path.replace("\\", "/")).resolve()
    if not place.is_relative_to(package) or not place.exists():
        problems.append(f"{owner.name} names {path}, which the package lacks")
    return place


def check_sheet(sheet):
    root = read(sheet)
    found = set()
    texts = [element.text or "" for element in root.iter()] + [element.get("Include", "") for element in root.iter()]
    for text in texts:
        for path in re.findall(r"\$\(TorvaneFolder\)([^;]+)", text):
            found.add(path)
            check(sheet, path)
    expected = {"include", "lib\\TVN_Agent_x86.lib", "bin\\TVN_Agent_x86.dll", "bin\\TVN_Agent_x86.pdb"}
    if found != expected:
        problems.append(f"{sheet.name} names {sorted(found)}, and not {sorted(expected)}")
    if root.findtext(f"{NAMESPACE}PropertyGroup/{NAMESPACE}TorvaneFolder") != "$(MSBuildThisFileDirectory)":
        problems.append(f"{sheet.name} doesn't find its own folder")


sheet = package / "Torvane.props"
check_sheet(sheet)
project = package / "samples" / "PlainC" / "PlainC.vcxproj"
root = read(project)
sources = [check(project, element.get("Include")) for element in root.iter(NAMESPACE + "ClCompile") if element.get("Include")]
imports = [element.get("Project") for element in root.iter(NAMESPACE + "Import")]
sheets = [check(project, path) for path in imports if "$(" not in path]
if not sources:
    problems.append(f"{project.name} has no source")
if sheets != [sheet]:
    problems.append(f"{project.name} imports {sheets}, and not {sheet}")
order = ["Default.props", "Cpp.props", "Torvane.props", "Cpp.targets"]
if [next((name for name in order if path.endswith(name)), path) for path in imports] != order:
    problems.append(f"{project.name} doesn't import {order} in this order")

print("\n".join(problems) or f"{sheet.name} and {project.name} name what the package has")
sys.exit(1 if problems else 0)

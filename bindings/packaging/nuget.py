"""The package for .NET: the assembly, which mono's compiler makes, and the libraries in runtimes/."""
import pathlib
import subprocess
import tempfile

from .assembly import settle
from .common import AUTHORS, BINDINGS, SUMMARY, VERSION, licence, tree, write_zip

FRAMEWORK = "net471"
# The assembly is not called like the native library, which may be in the same folder.
NAME = "QzHid"
SPECIFICATION = f"""<?xml version="1.0" encoding="utf-8"?>
<package xmlns="http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd">
  <metadata>
    <id>{NAME}</id>
    <version>{VERSION}</version>
    <authors>{AUTHORS}</authors>
    <license type="expression">MIT</license>
    <readme>README.md</readme>
    <description>{SUMMARY}</description>
    <dependencies><group targetFramework="{FRAMEWORK}" /></dependencies>
  </metadata>
</package>
"""
TYPES = """<?xml version="1.0" encoding="utf-8"?>
<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">
  <Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml" />
  <Default Extension="nuspec" ContentType="application/octet" />
  <Default Extension="dll" ContentType="application/octet" />
  <Default Extension="1" ContentType="application/octet" />
  <Default Extension="cs" ContentType="text/plain" />
  <Default Extension="md" ContentType="text/plain" />
  <Default Extension="txt" ContentType="text/plain" />
  <Default Extension="targets" ContentType="application/octet" />
  <Override PartName="/LICENSE" ContentType="text/plain" />
</Types>
"""
RELATIONS = f"""<?xml version="1.0" encoding="utf-8"?>
<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">
  <Relationship Type="http://schemas.microsoft.com/packaging/2010/07/manifest" Target="/{NAME}.nuspec" Id="R1" />
</Relationships>
"""
# Programs for .NET Framework and mono get the folder runtimes next to them.
TARGETS = """<Project>
  <ItemGroup>
    <None Include="$(MSBuildThisFileDirectory)../../runtimes/**/*">
      <Link>runtimes/%(RecursiveDir)%(Filename)%(Extension)</Link>
      <CopyToOutputDirectory>PreserveNewest</CopyToOutputDirectory>
    </None>
  </ItemGroup>
</Project>
"""


def make(out, all_libraries):
    files = {"[Content_Types].xml": TYPES.encode(), "_rels/.rels": RELATIONS.encode(),
             f"{NAME}.nuspec": SPECIFICATION.encode(), "LICENSE": licence(), **tree("dotnet", "README.md"),
             f"lib/{FRAMEWORK}/{NAME}.dll": _assembly(), f"build/{FRAMEWORK}/{NAME}.targets": TARGETS.encode()}
    files.update({f"src/{name}": data for name, data in tree("dotnet", "*.cs").items()})
    for libraries in all_libraries:
        files.update(libraries.files(f"runtimes/{libraries.system.dotnet}/native"))
        files.update(libraries.licence_files(libraries.system.dotnet))
    path = out / f"{NAME}.{VERSION}.nupkg"
    write_zip(path, files)
    return path


def _assembly():
    with tempfile.TemporaryDirectory() as work:
        version = pathlib.Path(work, "version.cs")
        version.write_text(f'[assembly: System.Reflection.AssemblyVersion("{VERSION}.0")]\n')
        assembly = pathlib.Path(work, f"{NAME}.dll")
        subprocess.run(["mcs", "-target:library", "-optimize", "-warnaserror", f"-out:{assembly}", version,
                        *sorted((BINDINGS / "dotnet").glob("*.cs"))], check=True)
        return settle(assembly.read_bytes())

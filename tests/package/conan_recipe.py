"""Runs the Conan recipe with stand-ins for Conan's modules. usage: conan_recipe.py WORK-DIRECTORY"""

import collections
import fnmatch
import importlib.util
import os
import pathlib
import re
import shutil
import subprocess
import sys
import types

TREE = pathlib.Path(__file__).resolve().parents[2]
WORK = pathlib.Path(sys.argv[1])


class Options(types.SimpleNamespace):
    def rm_safe(self, name):
        self.__dict__.pop(name, None)


class Properties(types.SimpleNamespace):
    def set_property(self, name, value):
        setattr(self, name, value)


class Toolchain:
    def __init__(self, recipe):
        recipe.toolchain = self
        self.cache_variables = {}

    def generate(self):
        pass


class CMake:
    def __init__(self, recipe):
        self.recipe = recipe

    def run(self, *arguments):
        subprocess.run(["cmake", *arguments], check=True, stdout=subprocess.DEVNULL)

    def configure(self):
        variables = {name: "ON" if value else "OFF" for name, value in self.recipe.toolchain.cache_variables.items()}
        variables["CMAKE_INSTALL_PREFIX"] = self.recipe.package_folder
        variables["CMAKE_INSTALL_LIBDIR"] = "lib"
        variables["CMAKE_BUILD_TYPE"] = "Release"
        variables["CMAKE_CXX_COMPILER_LAUNCHER"] = os.environ.get("VIREO_LAUNCHER", "")
        self.run("-S", self.recipe.export_sources_folder, "-B", self.recipe.build_folder, "-G", "Ninja",
                 *(f"-D{name}={value}" for name, value in variables.items()))

    def build(self):
        self.run("--build", self.recipe.build_folder)

    def install(self):
        self.run("--install", self.recipe.build_folder)


def copy(_recipe, pattern, source, target):
    for file in pathlib.Path(source).rglob("*"):
        relative = file.relative_to(source)
        if file.is_file() and relative.parts[0] not in ("build", ".git") and fnmatch.fnmatch(str(relative), pattern):
            destination = pathlib.Path(target) / relative
            destination.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(file, destination)


def module(name, **content):
    sys.modules[name] = types.ModuleType(name)
    sys.modules[name].__dict__.update(content)


module("conan", ConanFile=object)
module("conan.tools")
module("conan.tools.cmake", CMake=CMake, CMakeDeps=Toolchain, CMakeToolchain=Toolchain, cmake_layout=lambda recipe: None)
module("conan.tools.files", copy=copy, load=lambda _, path: pathlib.Path(path).read_text(), rmdir=lambda _, path: shutil.rmtree(path))
sys.dont_write_bytecode = True
spec = importlib.util.spec_from_file_location("conanfile", TREE / "packaging/conan/conanfile.py")
recipe_module = importlib.util.module_from_spec(spec)
spec.loader.exec_module(recipe_module)

# The second is the core alone, of what was built for both.
for shared, app in ((True, True), (True, False), (False, True)):
    recipe = recipe_module.VireoConan()
    base = WORK / ("shared" if shared else "static")
    package = base / ("app" if app else "core")
    if app:
        shutil.rmtree(base, ignore_errors=True)
    recipe.recipe_folder = str(TREE / "packaging/conan")
    recipe.export_sources_folder = base / "source"
    recipe.build_folder = base / "build"
    recipe.package_folder = str(package)
    recipe.options = Options(shared=shared, fPIC=True, app=app)
    recipe.settings = types.SimpleNamespace(os="Linux")
    recipe.cpp_info = Properties(components=collections.defaultdict(Properties))
    required = []
    recipe.requires = required.append
    for step in ("set_version", "export_sources", "config_options", "configure", "requirements", "layout", "generate",
                 "build", "package", "package_info"):
        getattr(recipe, step)()
    assert f"VERSION {recipe.version}\n" in (TREE / "CMakeLists.txt").read_text(), recipe.version
    names = [name.split("/")[0] for name in required]
    assert names == ["libmicrohttpd", "zlib", "openssl"] + (["brotli"] if app else []), required
    # 0.9.75 is safe where Debian has mended it, and this does not come from there.
    least = re.fullmatch(r"libmicrohttpd/\[>=(\d+)\.(\d+)\.(\d+) <2\]", required[0])
    assert least and tuple(map(int, least.groups())) >= (0, 9, 76), required[0]
    components = recipe.cpp_info.components
    assert list(components) == ["vireo"] + (["app"] if app else []), components
    # Conan refuses a package of whose requirements one is nobody's.
    assert {need.split("::")[0] for info in components.values() for need in info.requires} - {"vireo"} == set(names)
    for component, info in components.items():
        for library in info.libs:
            assert (package / "lib" / f"lib{library}.{'so' if shared else 'a'}").exists(), library
        assert hasattr(info, "defines") != shared
        assert info.cmake_target_name == f"Vireo::{component}"
    assert (package / "include/vireo/export.h").exists()
    for file in ("app.h", "app/App.h", "app/export.h"):
        assert (package / "include/vireo" / file).exists() == app, file
    assert (package / "licenses/LICENSE").exists()
    if shared and app:
        needs = subprocess.run(["ldd", package / "lib/libvireo-app.so"], check=True, capture_output=True, text=True).stdout
        assert f"{package}/lib/libvireo.so" in needs, needs  # it finds the core beside itself

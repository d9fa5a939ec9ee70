"""Runs the Conan recipe with stand-ins for Conan's modules. usage: conan_recipe.py WORK-DIRECTORY"""

import fnmatch
import importlib.util
import os
import pathlib
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
            shutil.copy(file, destination)


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

for shared in (True, False):
    recipe = recipe_module.VireoConan()
    base = WORK / ("shared" if shared else "static")
    shutil.rmtree(base, ignore_errors=True)
    recipe.recipe_folder = str(TREE / "packaging/conan")
    recipe.export_sources_folder = base / "source"
    recipe.build_folder = base / "build"
    recipe.package_folder = str(base / "package")
    recipe.options = Options(shared=shared, fPIC=True)
    recipe.settings = types.SimpleNamespace(os="Linux")
    recipe.cpp_info = Properties()
    required = []
    recipe.requires = required.append
    for step in ("set_version", "export_sources", "config_options", "configure", "requirements", "layout", "generate",
                 "build", "package", "package_info"):
        getattr(recipe, step)()
    package = base / "package"
    assert f"VERSION {recipe.version}\n" in (TREE / "CMakeLists.txt").read_text(), recipe.version
    assert [name.split("/")[0] for name in required] == ["libmicrohttpd", "zlib", "openssl"], required
    for library in recipe.cpp_info.libs:
        assert (package / "lib" / f"lib{library}.{'so' if shared else 'a'}").exists(), library
    assert (package / "include/vireo/export.h").exists()
    assert (package / "licenses/LICENSE").exists()
    assert hasattr(recipe.cpp_info, "defines") != shared
    assert recipe.cpp_info.cmake_target_name == "Vireo::vireo"

"""Builds and packages the source tree that it stands in, with Conan 2: `conan create packaging/conan`."""

import os
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir


class VireoConan(ConanFile):
    name = "vireo"
    description = "Embeddable HTTP/1.1 server library with WebSocket support"
    license = "MIT"
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    # "app" is the toolkit.
    options = {"shared": [True, False], "fPIC": [True, False], "app": [True, False]}
    default_options = {"shared": True, "fPIC": True, "app": True}

    def set_version(self):
        text = load(self, os.path.join(self.recipe_folder, "..", "..", "CMakeLists.txt"))
        self.version = re.search(r"project\(\s*Vireo\s+VERSION ([0-9.]+)", text).group(1)

    def export_sources(self):
        tree = os.path.join(self.recipe_folder, "..", "..")
        for pattern in ("CMakeLists.txt", "LICENSE", "*.md", "cmake/*", "docs/*", "include/*", "src/*", "packaging/debian/*",
                        "examples/tutorial/step7/plants.s*"):
            copy(self, pattern, tree, self.export_sources_folder)

    def config_options(self):
        if self.settings.os == "Windows":
            del self.options.fPIC

    def configure(self):
        if self.options.shared:
            self.options.rm_safe("fPIC")

    def requirements(self):
        # Before it, a form's boundary can have the engine read beyond its memory; Debian's 0.9.75 has that mended.
        self.requires("libmicrohttpd/[>=0.9.76 <2]")
        self.requires("zlib/[>=1.2.11 <2]")
        if self.settings.os != "Windows":
            self.requires("openssl/[>=3 <4]")
        if self.options.app:
            self.requires("brotli/[>=1.0.9 <2]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["VIREO_BUILD_SHARED"] = bool(self.options.shared)
        toolchain.cache_variables["VIREO_BUILD_TESTS"] = False
        toolchain.cache_variables["VIREO_BUILD_EXAMPLES"] = False
        toolchain.cache_variables["VIREO_INSTALL"] = True
        toolchain.cache_variables["VIREO_TLS"] = False
        toolchain.cache_variables["VIREO_BUILD_APP"] = bool(self.options.app)
        if self.options.app:
            toolchain.cache_variables["VIREO_BROTLI"] = True
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", self.export_sources_folder, os.path.join(self.package_folder, "licenses"))
        # Conan writes both for its users itself.
        rmdir(self, os.path.join(self.package_folder, "lib", "cmake"))
        rmdir(self, os.path.join(self.package_folder, "lib", "pkgconfig"))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "Vireo")
        self.add_library("vireo", "Vireo", ["libmicrohttpd::libmicrohttpd"])
        if self.options.app:
            self.add_library("app", "VireoApp", ["vireo", "brotli::brotlienc"])

    def add_library(self, component, dll, requirements):
        """Tells of one of the two libraries: Vireo::vireo or Vireo::app, "vireo" or "vireo-app" to pkg-config."""
        name = "vireo" if component == "vireo" else f"vireo-{component}"
        is_windows = self.settings.os == "Windows"
        info = self.cpp_info.components[component]
        info.set_property("cmake_target_name", f"Vireo::{component}")
        info.set_property("pkg_config_name", name)
        info.libs = [dll if is_windows else name]
        info.requires = requirements + ["zlib::zlib"] + ([] if is_windows else ["openssl::crypto"])
        info.system_libs = ["ws2_32", "bcrypt"] if is_windows else ["pthread"]
        if not self.options.shared:
            info.defines = ["VIREO_STATIC"]

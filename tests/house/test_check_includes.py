"""The check of include lines, on small trees of which each breaks one rule."""
import pathlib
import subprocess
import sys

import pytest

import check_includes

CHECK = pathlib.Path(check_includes.__file__)

# A sound tree: one header per room that the samples below include.
ROOMS = [
    "services/Basis/Text.h", "services/System/Environment.h", "services/Version/Version.h",
    "services/Synchronization/Lock.h", "services/Configuration/Parameters.h",
    "services/JoltUtils/Json.h", "services/Diagnose/TraceTopic.h", "services/FileAccess/File.h",
    "services/JoltTrace/Log.h", "services/JoltNet/Server.h", "vetraDefines.h",
    "vetraTests/VetraTestDefines.h", "vetraTests/LSInfo/SystemInfo.h",
    "vetraTests/FSPerf/FSPerf.h", "vetraTests/LandscapeTest.h", "impl/network/NetworkTest.h",
    "impl/vetra.h", "tests/services/Guards.h", "bench/Clock.h", "fuzz/FuzzHarness.h",
    "programs/vetraApi/Record.h", "programs/fsperf/CommandLine.h",
]


@pytest.fixture
def house(tmp_path):
    for path in ROOMS:
        write(tmp_path, path, "#pragma once\n#include <string>\n")
    return tmp_path


def write(root, path, text):
    (root / path).parent.mkdir(parents=True, exist_ok=True)
    (root / path).write_text(text)


def faults(root):
    return check_includes.Checker(root).faults()


def test_a_sound_tree_has_no_faults(house):
    assert faults(house) == []


@pytest.mark.parametrize("path, header", [
    ("services/Basis/Text.cpp", "Basis/Text.h"),
    ("services/System/Environment.cpp", "Basis/Text.h"),
    ("services/FileAccess/File.cpp", "libaio.h"),
    ("services/JoltUtils/Json.cpp", "nlohmann/json.hpp"),
    ("services/JoltNet/Server.cpp", "asio/ip/tcp.hpp"),
    ("services/Diagnose/Trace.cpp", "spdlog/logger.h"),
    ("services/Diagnose/Trace.cpp", "fmt/format.h"),
    ("services/Diagnose/Profiler.cpp", "libunwind.h"),
    ("services/Version/Version.cpp", "VersionData.h"),
    ("vetraDefines.cpp", "Diagnose/TraceTopic.h"),
    ("vetraTests/LSInfo/Rules.cpp", "vetraDefines.h"),
    ("vetraTests/FSPerf/FSPerf.cpp", "vetraTests/VetraTestDefines.h"),
    ("vetraTests/LandscapeTest.cpp", "vetraTests/LSInfo/SystemInfo.h"),
    ("impl/vetra.cpp", "vetraTests/LandscapeTest.h"),
    ("impl/network/NetworkTest.cpp", "JoltNet/Server.h"),
    ("programs/vetraApi/main.cpp", "vetraTests/LSInfo/SystemInfo.h"),
    ("programs/fsperf/main.cpp", "vetraTests/FSPerf/FSPerf.h"),
    ("programs/scanhypervisorCheck/main.cpp", "Version/Version.h"),
    ("tests/impl/Test.cpp", "impl/vetra.h"),
    ("fuzz/Fuzz.cpp", "nlohmann/json.hpp"),
    ("impl/vetra.cpp", "sys/stat.h"),
    ("impl/vetra.cpp", "unistd.h"),
])
def test_an_arrow_of_the_table_is_accepted(house, path, header):
    write(house, path, f'#include "{header}"\n')
    assert faults(house) == []


@pytest.mark.parametrize("path, header", [
    ("services/Basis/Text.cpp", "System/Environment.h"),
    ("services/Version/Version.cpp", "Basis/Text.h"),
    ("services/System/Environment.cpp", "Diagnose/TraceTopic.h"),
    ("services/JoltUtils/Json.cpp", "FileAccess/File.h"),
    ("services/Diagnose/Trace.cpp", "FileAccess/File.h"),
    ("services/FileAccess/File.cpp", "JoltUtils/Json.h"),
    ("services/JoltTrace/Log.cpp", "System/Environment.h"),
    ("services/JoltNet/Server.cpp", "FileAccess/File.h"),
    ("services/FileAccess/File.cpp", "vetraTests/FSPerf/FSPerf.h"),
    ("services/FileAccess/File.cpp", "vetraDefines.h"),
    ("vetraDefines.cpp", "System/Environment.h"),
    ("vetraTests/VetraTestDefines.h", "Basis/Text.h"),
    ("vetraTests/LSInfo/Rules.cpp", "Diagnose/TraceTopic.h"),
    ("vetraTests/LSInfo/Rules.cpp", "vetraTests/FSPerf/FSPerf.h"),
    ("vetraTests/LSInfo/Rules.cpp", "vetraTests/LandscapeTest.h"),
    ("vetraTests/FSPerf/FSPerf.cpp", "vetraDefines.h"),
    ("vetraTests/LandscapeTest.cpp", "impl/vetra.h"),
    ("vetraTests/LandscapeTest.cpp", "JoltNet/Server.h"),
    ("impl/network/NetworkTest.cpp", "impl/vetra.h"),
    ("impl/network/NetworkTest.cpp", "FileAccess/File.h"),
    ("impl/vetra.cpp", "tests/services/Guards.h"),
    ("impl/vetra.cpp", "programs/vetraApi/Record.h"),
    ("programs/vetraApi/main.cpp", "impl/vetra.h"),
    ("programs/vetraApi/main.cpp", "vetraTests/FSPerf/FSPerf.h"),
    ("programs/vetraApi/main.cpp", "programs/fsperf/CommandLine.h"),
    ("programs/fsperf/main.cpp", "vetraTests/LSInfo/SystemInfo.h"),
    ("programs/scanhypervisorCheck/main.cpp", "vetraTests/LSInfo/SystemInfo.h"),
    ("services/Basis/Text.cpp", "bench/Clock.h"),
    ("services/Basis/Text.cpp", "fuzz/FuzzHarness.h"),
])
@pytest.mark.parametrize("brackets", ['"{}"', "<{}>"])
def test_any_other_arrow_fails(house, path, header, brackets):
    write(house, path, "#include <string>\n  #  include " + brackets.format(header) + "  // why\n")
    (fault,) = faults(house)
    assert fault.startswith(f"{path}:2: ") and header in fault


@pytest.mark.parametrize("header", [
    "libaio.h", "nlohmann/json.hpp", "asio.hpp", "asio/ip/tcp.hpp", "spdlog/spdlog.h",
    "fmt/core.h", "libunwind.h", "VersionData.h"])
@pytest.mark.parametrize("path", [
    "services/Basis/Text.cpp", "services/JoltTrace/Log.h", "vetraTests/LSInfo/Rules.cpp",
    "impl/vetra.cpp"])
def test_a_library_is_seen_by_its_owner_alone(house, path, header):
    write(house, path, f"#include <{header}>\n")
    (fault,) = faults(house)
    assert fault.startswith(f"{path}:1: ")


@pytest.mark.parametrize("path, owner", [
    ("services/FileAccess/File.cpp", "services/JoltUtils"),
    ("services/Diagnose/Trace.cpp", "services/JoltUtils"),
])
def test_an_owner_of_one_library_does_not_see_another(house, path, owner):
    write(house, path, "#include <nlohmann/json.hpp>\n")
    (fault,) = faults(house)
    assert owner in fault


@pytest.mark.parametrize("header", ["boost/asio.hpp", "curl/curl.h", "openssl.h", "Missing.h"])
def test_a_header_that_nobody_knows_fails(house, header):
    write(house, "impl/vetra.cpp", f"#include <{header}>\n")
    (fault,) = faults(house)
    assert header in fault


def test_a_header_beside_the_file_is_of_its_room(house):
    write(house, "services/Basis/Crash.cpp", '#include "Text.h"\n')
    assert faults(house) == []


def test_a_name_beside_the_file_goes_before_that_of_another_room(house):
    write(house, "services/System/Text.h", "#pragma once\n")
    write(house, "services/System/Environment.cpp", '#include "Text.h"\n')
    assert faults(house) == []


@pytest.mark.parametrize("path", [
    "services/Helpers/Helpers.h", "programs/newcomer/main.cpp", "elsewhere/Other.cpp"])
def test_a_room_that_is_not_in_the_table_fails(house, path):
    write(house, path, "#include <string>\n")
    (fault,) = faults(house)
    assert fault.startswith(f"{path}: ")


def test_a_deeper_folder_is_of_the_room_around_it(house):
    write(house, "vetraTests/LSInfo/tables/Models.h", '#include "impl/vetra.h"\n')
    (fault,) = faults(house)
    assert "vetraTests/LSInfo may not include impl" in fault


def test_the_table_has_no_circles():
    assert check_includes.circles(check_includes.ARROWS) == []


def test_a_circle_in_a_table_is_found():
    assert len(check_includes.circles({"a": {"b"}, "b": {"c"}, "c": {"a"}, "d": {"a"}})) == 3


@pytest.mark.parametrize("header, status", [("Basis/Text.h", 0), ("impl/vetra.h", 1)])
def test_the_program_ends_with_what_it_found(house, header, status):
    write(house, "services/System/Environment.cpp", f'#include "{header}"\n')
    run = subprocess.run([sys.executable, CHECK, house], stdout=subprocess.PIPE, text=True)
    assert run.returncode == status
    assert ("services/System/Environment.cpp:1" in run.stdout) == bool(status)

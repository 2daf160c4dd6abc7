#pragma once
// JSON forms of the client's objects, as the host program prints them with
// --json. The shapes are an interface that scripts rely on:
//
// device     {"guid", "name", "description", "type", "capabilities": [names],
//             "osLocator", "hwLocator", "parentGuid" (null for a root),
//             "state", "properties": {key: property}}
// property   {"type", "value", "name"} and, when it has child properties,
//             "children": {key: property}
// module     {"guid", "name", "description", "company", "version", "type",
//             "buildDate", "capabilities": [names], "tests": [guids],
//             "benchmarks": [guids]}
// test       {"guid", "key", "name", "description", "module" (guid or null),
//             "type": "test" | "benchmark", "flags": [names],
//             "capabilities": [names], "parameters": [parameter],
//             "devices": [guids]}
// parameter  {"key", "name", "description", "type", "default"}
//
// Values keep their kind: integers and doubles become numbers (a PERCENT is
// the number without "%"), BOOLEAN true/false, arrays arrays, a TABLE
// {"rows", "columns", "cells": [[text]]} row by row, measurements their text,
// and a value that holds nothing null. Type and state names are the
// library's row strings ("UINT32", "FUNCTIONAL"); capability names those of
// the capability catalogue.

#include <nlohmann/json.hpp>

#include <vector>

#include "MirrorWalk.h"
#include "ostrel/Device.h"
#include "ostrel/DeviceCapability.h"
#include "ostrel/DeviceProperty.h"
#include "ostrel/Module.h"
#include "ostrel/Test.h"
#include "ostrel/TestParameter.h"
#include "ostrel/Value.h"

namespace ostrel5 {
namespace host {

/// Objects keep their members in the order written above (and properties in
/// the mirror's order), which reads better than sorted keys.
using Json = nlohmann::ordered_json;

Json valueJson(Value const &value);
/// The primitive capabilities of a set, by name.
Json capabilityNames(DeviceCapability const &capabilities);
Json propertyJson(DeviceProperty const &property, Device const &device);
Json deviceJson(Device const &device);
Json parameterJson(TestParameter const &parameter);
Json testJson(Test const &test);
Json moduleJson(Module const &module);

/// {"devices": [device]} in the order given.
Json devicesDocument(std::vector<DeviceEntry> const &devices);
/// {"modules": [module], "tests": [test], "benchmarks": [test]}.
Json testsDocument(std::vector<Module> const &modules, std::vector<Test> const &tests,
                   std::vector<Test> const &benchmarks);

/// Indented text of a document; bytes that are not UTF-8 become U+FFFD
/// instead of ending the output.
std::string dump(Json const &document);

} // namespace host
} // namespace ostrel5

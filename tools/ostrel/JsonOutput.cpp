#include "JsonOutput.h"

#include <cstdlib>

#include "ostrel/DataType.h"
#include "ostrel/DeviceList.h"
#include "ostrel/DevicePropertyList.h"
#include "ostrel/DeviceState.h"
#include "ostrel/ModuleType.h"
#include "ostrel/Table.h"
#include "ostrel/TableCell.h"
#include "ostrel/TestList.h"
#include "ostrel/TestParameterList.h"
#include "ostrel/Version.h"

namespace ostrel5 {
namespace host {

using json = Json;

namespace {

json textOrNull(Device const &device) {
  return device.isValid() ? json(text(device.guid())) : json(nullptr);
}

template <class List> json guids(List const &list) {
  json out = json::array();
  for (unsigned int i = 0; i < list.size(); ++i)
    out.push_back(text(list[i].guid()));
  return out;
}

json tableJson(Table const &table) {
  json cells = json::array();
  for (unsigned short r = 0; r < table.getRows(); ++r) {
    json row = json::array();
    for (unsigned short c = 0; c < table.getCols(); ++c)
      row.push_back(text(table.getCell(r, c).toString()));
    cells.push_back(std::move(row));
  }
  return json{{"rows", table.getRows()}, {"columns", table.getCols()}, {"cells", cells}};
}

// Element texts of an integer array, read back as numbers; an element that is
// no number (which the library does not produce) stays text rather than
// becoming a wrong number.
json integerArray(Value const &value) {
  json out = json::array();
  for (unsigned int i = 0; i < value.stringCount(); ++i) {
    std::string const element = text(value.stringAtIndex(i));
    char *end = nullptr;
    long long const number = std::strtoll(element.c_str(), &end, 10);
    if (!element.empty() && end && *end == '\0')
      out.push_back(number);
    else
      out.push_back(element);
  }
  return out;
}

json stringArray(Value const &value) {
  json out = json::array();
  for (unsigned int i = 0; i < value.stringCount(); ++i)
    out.push_back(text(value.stringAtIndex(i)));
  return out;
}

} // namespace

json valueJson(Value const &value) {
  typedef DataType::DataType_ENUM Kind;
  DataType const type = value.getType();
  if (type.enumValue() >= DataType::constantCount())
    return nullptr;
  switch (type.enumValue()) {
  case Kind::UINT32:
  case Kind::UINT64:
    return value.toUint64();
  case Kind::INT32:
  case Kind::INT64:
    // The 64-bit integer of the value, read back with its sign.
    return static_cast<long long>(value.toUint64());
  case Kind::DOUBLE:
  case Kind::PERCENT:
    return value.toDouble();
  case Kind::BOOLEAN:
    return value.toBool();
  case Kind::STRINGARRAY:
  case Kind::LOCALIZEDSTRINGARRAY:
  case Kind::DISCRETEMEASUREMENTARRAY:
    return stringArray(value);
  case Kind::UINT32ARRAY: {
    json out = json::array();
    for (unsigned int i = 0; i < value.uint32Count(); ++i)
      out.push_back(value.uint32AtIndex(i));
    return out;
  }
  case Kind::INT32ARRAY:
    return integerArray(value);
  case Kind::TABLE:
    return tableJson(value.toTable());
  default:
    return text(value.toString());
  }
}

json capabilityNames(DeviceCapability const &capabilities) {
  json out = json::array();
  for (unsigned int i = 0; i < capabilities.primitiveCapabilityCount(); ++i)
    out.push_back(text(capabilities.getPrimitiveCapability(i).toString()));
  return out;
}

json propertyJson(DeviceProperty const &property, Device const &device) {
  json out{{"type", text(property.type().toString())},
           {"value", valueJson(property.value())},
           {"name", text(property.localizedName())}};
  if (property.childPropertyCount() > 0) {
    json children = json::object();
    DevicePropertyList const list = property.children(device);
    for (unsigned int i = 0; i < list.size(); ++i)
      children[text(list[i].key())] = propertyJson(list[i], device);
    out["children"] = std::move(children);
  }
  return out;
}

json deviceJson(Device const &device) {
  json properties = json::object();
  DevicePropertyList const list = device.topProperties();
  for (unsigned int i = 0; i < list.size(); ++i)
    properties[text(list[i].key())] = propertyJson(list[i], device);
  return json{{"guid", text(device.guid())},
              {"name", text(device.name())},
              {"description", text(device.description())},
              {"type", text(device.deviceType().toString())},
              {"capabilities", capabilityNames(device.capabilities())},
              {"osLocator", text(device.osLocator())},
              {"hwLocator", text(device.hwLocator())},
              {"parentGuid", textOrNull(device.parent())},
              {"state", text(device.deviceState().toString())},
              {"properties", std::move(properties)}};
}

json parameterJson(TestParameter const &parameter) {
  return json{{"key", text(parameter.key())},
              {"name", text(parameter.localizedName())},
              {"description", text(parameter.localizedDescription())},
              {"type", text(parameter.type().toString())},
              {"default", valueJson(parameter.value())}};
}

json testJson(Test const &test) {
  json flags = json::array();
  if (test.isInteractive())
    flags.push_back("interactive");
  if (test.isDestructive())
    flags.push_back("destructive");
  if (test.createsOwnGUI())
    flags.push_back("ownGui");
  if (test.supportsParallelTesting())
    flags.push_back("parallel");
  if (!test.isEnabled())
    flags.push_back("disabled");

  json parameters = json::array();
  TestParameterList const list = test.parameters();
  for (unsigned int i = 0; i < list.size(); ++i)
    parameters.push_back(parameterJson(list[i]));

  Module const module = test.module();
  return json{{"guid", text(test.guid())},
              {"key", text(test.keyInModule())},
              {"name", text(test.localizedName())},
              {"description", text(test.localizedDescription())},
              {"module", module.isValid() ? json(text(module.guid())) : json(nullptr)},
              {"type", test.type() == Test::BENCHMARK ? "benchmark" : "test"},
              {"flags", std::move(flags)},
              {"capabilities", capabilityNames(test.deviceCapabilitiesSupported())},
              {"parameters", std::move(parameters)},
              {"devices", guids(test.devices())}};
}

json moduleJson(Module const &module) {
  return json{{"guid", text(module.guid())},
              {"name", text(module.localizedName())},
              {"description", text(module.localizedDescription())},
              {"company", text(module.company())},
              {"version", text(module.version().toString())},
              {"type", text(module.type().toString())},
              {"buildDate", text(module.buildDate())},
              {"capabilities", capabilityNames(module.supportedCapabilities())},
              {"tests", guids(module.tests())},
              {"benchmarks", guids(module.benchmarks())}};
}

json devicesDocument(std::vector<DeviceEntry> const &devices) {
  json list = json::array();
  for (DeviceEntry const &entry : devices)
    list.push_back(deviceJson(entry.device));
  return json{{"devices", std::move(list)}};
}

json testsDocument(std::vector<Module> const &modules, std::vector<Test> const &tests,
                   std::vector<Test> const &benchmarks) {
  json m = json::array(), t = json::array(), b = json::array();
  for (Module const &module : modules)
    m.push_back(moduleJson(module));
  for (Test const &test : tests)
    t.push_back(testJson(test));
  for (Test const &test : benchmarks)
    b.push_back(testJson(test));
  return json{{"modules", std::move(m)}, {"tests", std::move(t)}, {"benchmarks", std::move(b)}};
}

std::string dump(json const &document) {
  return document.dump(2, ' ', false, json::error_handler_t::replace);
}

} // namespace host
} // namespace ostrel5

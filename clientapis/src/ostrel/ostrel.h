#pragma once
// <ostrel/ostrel.h>: the whole public interface of the client library in one
// include, for programs that would rather not pick headers one by one.
//
// It includes every public header of the library: the files directly in
// include/ostrel/ and those of the script documents in include/ostrel/xmlscript/.
// The headers of include/ostrel/internal/ are the library's own and stay out.
// A packaging test lists both folders and fails when a header is missing
// here, so add each new public header below, in alphabetical order.

#include "ostrel/Alert.h"
#include "ostrel/AlertList.h"
#include "ostrel/AlertType.h"
#include "ostrel/AlertValueKey.h"
#include "ostrel/ApiWrapper.h"
#include "ostrel/ApplicationRunType.h"
#include "ostrel/ClientMessageHandler.h"
#include "ostrel/ConstantClass.h"
#include "ostrel/DataType.h"
#include "ostrel/DateTime.h"
#include "ostrel/Device.h"
#include "ostrel/DeviceCapability.h"
#include "ostrel/DeviceList.h"
#include "ostrel/DeviceObserver.h"
#include "ostrel/DeviceProperty.h"
#include "ostrel/DevicePropertyList.h"
#include "ostrel/DeviceState.h"
#include "ostrel/EnumerationObserver.h"
#include "ostrel/EventType.h"
#include "ostrel/HandleList.h"
#include "ostrel/InvalidCellException.h"
#include "ostrel/Module.h"
#include "ostrel/ModuleList.h"
#include "ostrel/ModuleType.h"
#include "ostrel/ParameterSource.h"
#include "ostrel/Prompting.h"
#include "ostrel/PropertyCategory.h"
#include "ostrel/PropertyObserver.h"
#include "ostrel/ScriptletCategory.h"
#include "ostrel/ScriptletStatus.h"
#include "ostrel/Table.h"
#include "ostrel/TableCell.h"
#include "ostrel/TableList.h"
#include "ostrel/Test.h"
#include "ostrel/TestList.h"
#include "ostrel/TestParameter.h"
#include "ostrel/TestParameterList.h"
#include "ostrel/TestResult.h"
#include "ostrel/TestState.h"
#include "ostrel/Tip.h"
#include "ostrel/TipType.h"
#include "ostrel/Value.h"
#include "ostrel/Version.h"
#include "ostrel/ostrelMain.h"

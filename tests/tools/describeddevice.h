/// @file
/// An EDS file for tests.

#ifndef TESTS_TOOLS_DESCRIBEDDEVICE_H
#define TESTS_TOOLS_DESCRIBEDDEVICE_H

#include <string>

/// A device with a variable that has limits, and an array with a value that depends on the node's number.
inline const std::string description_text =
    "[MandatoryObjects]\nSupportedObjects=1\n1=0x1000\n"
    "[1000]\nParameterName=Device type\nObjectType=7\nDataType=7\nAccessType=ro\nDefaultValue=0x191\n"
    "[ManufacturerObjects]\nSupportedObjects=2\n1=0x2000\n2=0x2001\n"
    "[2000]\nParameterName=Speed\nObjectType=7\nDataType=3\nAccessType=rww\nLowLimit=-100\nHighLimit=100\n"
    "PDOMapping=1\n"
    "[2001]\nParameterName=Inputs\nObjectType=8\nSubNumber=2\n"
    "[2001sub0]\nParameterName=Count\nObjectType=7\nDataType=5\nAccessType=ro\nDefaultValue=1\n"
    "[2001sub1]\nParameterName=Source\nObjectType=7\nDataType=7\nAccessType=rw\nDefaultValue=$NODEID+0x180\n";

#endif

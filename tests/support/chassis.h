#ifndef TESTS_SUPPORT_CHASSIS_H
#define TESTS_SUPPORT_CHASSIS_H

#include <string>

/*
 * The platform's configuration database as a program has it that is linked with chassis.cpp: it holds nothing but the
 * chassis identifier. The library asks once, so a test that cares for the answer needs a process of its own.
 */
namespace chassis {

/* Names the chassis, which is CHASSIS-7 without that. */
void set_id(const std::string& id);

/* Lets the named operation fail with an error number. */
void fail(const std::string& operation, int error);

}  // namespace chassis

#endif

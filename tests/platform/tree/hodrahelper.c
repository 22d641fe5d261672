/* The companion, which the database library needs but does not name. */
const char* companion_chassis_id(void);
const char* companion_chassis_id(void) { return "PLATFORM-1"; }

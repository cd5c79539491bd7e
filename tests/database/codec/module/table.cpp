// A shared object with a descriptor table, for tests to load and unload.
#include "tests/database/codec/tlv_tables.h"

extern "C" __attribute__((visibility("default"))) constinit const tlv_test::Table<1> module_table =
    {tlv_test::table_head("module", 0x50, 4),
     {tlv_test::int_field(1, 4, 0), tlv_test::end_field()}};

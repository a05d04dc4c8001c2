// The Lua scripts that the Redis store runs on its server, one per kind of
// step that must read and write as one (see tbl_redis.h for the layout).
#pragma once

enum tbl_redis_script {
    kTblLuaWrite,    // compare, write, number and log a step's writes
    kTblLuaPage,     // a scan's page while the table's version stands
    kTblLuaJoin,     // enter the readers at the top
    kTblLuaRecord,   // a reader's place, with its lease
    kTblLuaLeave,    // out of the readers
    kTblLuaPrune,    // drop dead readers, trim the log
    kTblLuaMigrate,  // bring a store of an earlier layout to this one
    kTblLuaCount
};

extern const char *const kTblLua[kTblLuaCount];

// The layout that the store's identity names ("3/HEX"); a store whose
// identity has no layout is of the first one.
constexpr const char *kTblRedisLayout = "3";

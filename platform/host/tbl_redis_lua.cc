// The Redis store's scripts. Each takes everything as ARGV: keys named as
// KEYS would count as written for the server's ACL, and the hardware side
// may only read. Sequence numbers are formatted with %d: Lua's numbers are
// doubles, exact up to the highest number a change may carry.
#include "platform/host/tbl_redis_lua.h"

const char *const kTblLua[kTblLuaCount] = {
    // ARGV: prefix, writer number, then op ("s" or "d"), table, key, row
    // per write. Returns the top before and after, and for each write
    // whether it changed the table.
    //
    // What each redis.call costs is mostly the call itself (the command's
    // lookup, its arguments made objects, its effect fed to the append-only
    // file), so the step reads the rows of all its keys with one HMGET per
    // table, compares here, writes each table's final rows with one HSET and
    // one HDEL, and logs its changes as one stream entry: a change costs a
    // share of those. A stream entry of its own for each change took a third
    // of the server's time. Calls take at most kChunk keys, well within
    // Lua's stack.
    R"(local p, writer = ARGV[1], ARGV[2]
local kChunk = 1000
local log = p .. 'log'
local top = tonumber(redis.call('GET', p .. 'top') or '0')
local before = top
local tables, names = {}, {}
for i = 3, #ARGV, 4 do
  local tbl, key = ARGV[i + 1], ARGV[i + 2]
  local t = tables[tbl]
  if not t then
    t = {rows = p .. 'rows:' .. tbl, keys = {}, known = {}, now = {}, dirty = {},
         field = {s = 'set:' .. tbl, d = 'del:' .. tbl}}
    tables[tbl] = t
    names[#names + 1] = tbl
  end
  if not t.known[key] then
    t.known[key] = true
    t.keys[#t.keys + 1] = key
  end
end
local function chunks(list, fn)
  for i = 1, #list, kChunk do fn(unpack(list, i, math.min(i + kChunk - 1, #list))) end
end
for _, tbl in ipairs(names) do
  local t = tables[tbl]
  local at = 0
  chunks(t.keys, function(...)
    local vals = redis.call('HMGET', t.rows, ...)
    for j = 1, #vals do t.now[t.keys[at + j]] = vals[j] end
    at = at + #vals
  end)
end
local changed, logged = {}, {}
for i = 3, #ARGV, 4 do
  local op, t, key, row = ARGV[i], tables[ARGV[i + 1]], ARGV[i + 2], ARGV[i + 3]
  local c = 0
  if op == 's' then
    if t.now[key] ~= row then t.now[key] = row; c = 1 end
  elseif t.now[key] then
    t.now[key] = false; c = 1
  end
  if c == 1 then
    top = top + 1
    t.dirty[key] = true
    logged[#logged + 1] = t.field[op]
    logged[#logged + 1] = row
  end
  changed[#changed + 1] = c
end
local now = string.format('%d', top)
for _, tbl in ipairs(names) do
  local t = tables[tbl]
  local sets, dels = {}, {}
  for _, key in ipairs(t.keys) do
    if t.dirty[key] then
      local v = t.now[key]
      if v then
        sets[#sets + 1] = key
        sets[#sets + 1] = v
      else
        dels[#dels + 1] = key
      end
    end
  end
  -- Pairs stay whole: kChunk is even.
  chunks(sets, function(...) redis.call('HSET', t.rows, ...) end)
  chunks(dels, function(...) redis.call('HDEL', t.rows, ...) end)
  if #sets + #dels > 0 then redis.call('SET', p .. 'ver:' .. tbl, now) end
end
if top ~= before then
  -- An entry's ID is the number of its last change; its fields, in order,
  -- are the changes numbered up to it. A step of more changes than a call
  -- takes logs several entries. Pairs stay whole: kChunk is even.
  local at = before
  for i = 1, #logged, kChunk do
    local j = math.min(i + kChunk - 1, #logged)
    at = at + (j - i + 1) / 2
    redis.call('XADD', log, string.format('%d-', at) .. writer, unpack(logged, i, j))
  end
  redis.call('SET', p .. 'top', now)
end
return {string.format('%d', before), now, changed})",
    // ARGV: the table's version and rows, the version the caller's key
    // list has ("*": any), then the keys of the page. The page's rows
    // when the table is still at that version; else the version now and
    // every key, for the caller to sort and ask again.
    R"(local ver = redis.call('GET', ARGV[1]) or '0'
if ARGV[3] ~= '*' and ver ~= ARGV[3] then return {ver, redis.call('HKEYS', ARGV[2])} end
if #ARGV < 4 then return {} end
return redis.call('HMGET', ARGV[2], unpack(ARGV, 4)))",
    // ARGV: prefix, reader id, lease ms. The reader's place is the top,
    // read in the same step.
    R"(local top = redis.call('GET', ARGV[1] .. 'top') or '0'
redis.call('HSET', ARGV[1] .. 'readers', ARGV[2], top)
redis.call('SET', ARGV[1] .. 'lease:' .. ARGV[2], top, 'PX', ARGV[3])
return top)",
    // ARGV: prefix, reader id, lease ms, place.
    R"(redis.call('HSET', ARGV[1] .. 'readers', ARGV[2], ARGV[4])
redis.call('SET', ARGV[1] .. 'lease:' .. ARGV[2], ARGV[4], 'PX', ARGV[3])
return 1)",
    // ARGV: prefix, reader id.
    R"(redis.call('HDEL', ARGV[1] .. 'readers', ARGV[2])
redis.call('DEL', ARGV[1] .. 'lease:' .. ARGV[2])
return 1)",
    // ARGV: prefix, log cap, then the ids of readers known to be gone. A
    // reader whose lease ran out is gone too, wherever it ran.
    R"(local p = ARGV[1]
for i = 3, #ARGV do
  redis.call('HDEL', p .. 'readers', ARGV[i])
  redis.call('DEL', p .. 'lease:' .. ARGV[i])
end
local newest = tonumber(redis.call('GET', p .. 'top') or '0')
local keep = newest - 1
local slowest = nil
local all = redis.call('HGETALL', p .. 'readers')
for i = 1, #all, 2 do
  if redis.call('EXISTS', p .. 'lease:' .. all[i]) == 0 then
    redis.call('HDEL', p .. 'readers', all[i])
  else
    local n = tonumber(all[i + 1])
    if n and (slowest == nil or n < slowest) then slowest = n end
  end
end
if slowest then keep = math.max(slowest, newest - tonumber(ARGV[2])) end
local floor = math.min(keep, newest - 1)
if floor > 0 then redis.call('XTRIM', p .. 'log', 'MINID', string.format('%d', floor + 1)) end
return floor)",
    // ARGV: prefix, the identity as read, the layout. An earlier layout's
    // log entries (four fields each in the first, one change each in the
    // second) cannot be read as this layout's: the log goes, the rows and
    // the numbering stay. The identity changes, so that a process of the
    // earlier layout still running finds its store replaced and ends; one
    // that starts now joins at the top. Returns 0 when the identity is no
    // longer the one read (another process did it).
    R"(local p = ARGV[1]
if redis.call('GET', p .. 'id') ~= ARGV[2] then return 0 end
redis.call('DEL', p .. 'log')
local ident = string.match(ARGV[2], '^%d+/(.*)$') or ARGV[2]
redis.call('SET', p .. 'id', ARGV[3] .. '/' .. ident)
return 1)",
};

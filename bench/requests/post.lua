-- post.lua COOKIE TOKEN ANSWER CONNECTIONS: posts an empty object as a signed-in administrator
-- and compares every answer's body.

function setup(thread)
  worker = thread
end

function init(args)
  wrk.method = "POST"
  wrk.body = "{}"
  wrk.headers["Content-Type"] = "application/json"
  wrk.headers["Cookie"] = "kalo_session=" .. args[1]
  wrk.headers["X-KALO-Token"] = args[2]
  expected = args[3]
  connections = tonumber(args[4])
  wrong = 0
end

function response(status, headers, body)
  if status ~= 200 or body ~= expected then wrong = wrong + 1 end
end

-- wrk adds to what it measured: for a request that took long, those that a client with a steady pace
-- would have sent meanwhile. A moment in which the whole machine stood still becomes hundreds of slow
-- requests so, and the more of them the quicker the server is otherwise. This takes them out again.
function measured(latency, pace)
  local counts, values = {}, {}
  for i = 1, #latency do
    local value, count = latency(i)
    values[i] = tonumber(value)
    counts[values[i]] = tonumber(count)
  end
  table.sort(values)
  for i = #values, 1, -1 do
    local count = counts[values[i]]
    for early = values[i] - pace, pace + 1, -pace do
      if count > 0 then counts[early] = counts[early] - count end
    end
  end
  return counts, values
end

function percentile(counts, values, wanted)
  local seen = 0
  for _, value in ipairs(values) do
    seen = seen + counts[value]
    if seen >= wanted then return value end
  end
  error("wrk does not add what it is known to add")
end

-- An answer that never came is a wrong one.
function lost(errors)
  return errors.connect + errors.read + errors.write + errors.timeout
end

function done(summary, latency, requests)
  local pace = math.floor(summary.duration / math.floor(summary.requests / worker:get("connections")))
  local counts, values = measured(latency, pace)
  io.write(string.format("RESULT %d %d %d %d %d %d\n", summary.requests, summary.duration,
    percentile(counts, values, summary.requests * 0.5),
    percentile(counts, values, summary.requests * 0.99), latency.max,
    worker:get("wrong") + lost(summary.errors)))
end

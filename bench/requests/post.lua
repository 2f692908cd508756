-- post.lua COOKIE TOKEN ANSWER: posts an empty object as a signed-in administrator and compares every
-- answer's body.

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
  wrong = 0
end

function response(status, headers, body)
  if status ~= 200 or body ~= expected then wrong = wrong + 1 end
end

function done(summary, latency, requests)
  io.write(string.format("RESULT %d %d %.0f %.0f %d %d\n", summary.requests, summary.duration,
    latency:percentile(50), latency:percentile(99), latency.max, worker:get("wrong")))
end

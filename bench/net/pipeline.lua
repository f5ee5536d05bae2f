-- wrk script: every write carries `depth` GET requests at once (HTTP/1.1 pipelining).
--   wrk -s pipeline.lua URL -- DEPTH PATH
init = function(args)
    local depth = tonumber(args[1]) or 16
    local path = args[2] or "/plaintext"
    local requests = {}
    for i = 1, depth do
        requests[i] = wrk.format("GET", path)
    end
    req = table.concat(requests)
end

request = function()
    return req
end

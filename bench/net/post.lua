-- wrk script: every request POSTs the same JSON body (a service call of zel-host --http).
--   wrk -s post.lua URL -- JSON
init = function(args)
    wrk.method = "POST"
    wrk.body = args[1] or "{}"
    wrk.headers["Content-Type"] = "application/json"
end

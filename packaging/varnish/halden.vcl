# A caching edge for Varnish 7.1, as packaging/nginx/halden-edge.conf, where the reasons
# stand. Varnish speaks no TLS: a TLS proxy of the same machine stands before it, and its
# origins answer plain http, on this machine or in a network of your own.
#
# To use it: put your origins below and this file into /etc/varnish, and start
#   varnishd -a 127.0.0.1:6081 -f /etc/varnish/halden.vcl -s files=file,/var/cache/halden,100g
vcl 4.1;

import directors;

# Asked for every few seconds, so that nobody waits for one that is down.
probe origin_probe {
    .request = "GET /patch.ini HTTP/1.1"
               "Host: download.tarnwick.example"
               "Connection: close";
    .interval = 5s;
    .timeout = 3s;
    .initial = 5;
    .window = 5;
    .threshold = 3;
}

backend first {
    .host = "192.0.2.10";
    .port = "80";
    .connect_timeout = 5s;
    .first_byte_timeout = 25s;
    .between_bytes_timeout = 25s;
    .probe = origin_probe;
}

backend second {
    .host = "192.0.2.11";
    .port = "80";
    .connect_timeout = 5s;
    .first_byte_timeout = 25s;
    .between_bytes_timeout = 25s;
    .probe = origin_probe;
}

sub vcl_init {
    # Manifests and launcher files come from the first that is up. One that has gone
    # down this moment still counts as up: then it is the other one's turn.
    new index = directors.fallback();
    index.add_backend(first);
    index.add_backend(second);
    new index_again = directors.fallback();
    index_again.add_backend(second);
    index_again.add_backend(first);
    # Patch files come from any of them.
    new files = directors.shard();
    files.add_backend(first);
    files.add_backend(second);
    files.reconfigure();
}

sub vcl_recv {
    if (req.method != "GET" && req.method != "HEAD") {
        return (synth(403));
    }
    # What publishers keep for themselves, however it is spelt.
    if (req.url ~ "^/+(wow-client-patch/+)?(\.|%2[eE])" && req.url !~ "^/+\.well-known/") {
        return (synth(404));
    }
    unset req.http.Cookie;
    unset req.http.Authorization;
    unset req.http.Halden-Date;
    unset req.http.If-None-Match;
    # Nobody's origin packs anything.
    unset req.http.Accept-Encoding;

    if (req.url ~ "^/+wow-client-patch/") {
        # Its name is its content's: no date and no parameter matters.
        unset req.http.If-Modified-Since;
        set req.url = regsuball(regsub(req.url, "\?.*$", ""), "/+", "/");
        set req.http.Host = "download.tarnwick.example";
        return (hash);
    }
    if (req.url ~ "^/+patch(Test|-next)?\.ini(\?|$)") {
        unset req.http.If-Modified-Since;
    }
    # Which dates count is the origin's affair; nothing is compared here.
    if (req.http.If-Modified-Since) {
        set req.http.Halden-Date = req.http.If-Modified-Since;
        unset req.http.If-Modified-Since;
    }
    return (pass);
}

sub vcl_backend_fetch {
    if (bereq.url ~ "^/+wow-client-patch/") {
        # Whole files are kept, whatever part a player asks for.
        unset bereq.http.Range;
        set bereq.backend = files.backend(by=URL, alt=bereq.retries);
        return (fetch);
    }
    if (bereq.retries == 0) {
        set bereq.backend = index.backend();
    } else {
        set bereq.backend = index_again.backend();
    }
    if (bereq.http.Halden-Date) {
        set bereq.http.If-Modified-Since = bereq.http.Halden-Date;
        unset bereq.http.Halden-Date;
    }
}

sub vcl_backend_response {
    if (bereq.url ~ "^/+wow-client-patch/") {
        # An origin that lacks it, or fails, may lag behind another one.
        if (beresp.status != 200 && bereq.retries < 1) {
            return (retry);
        }
        if (beresp.status != 200 || !beresp.http.Content-Length
            || beresp.http.Content-Length == "0") {
            # No error is kept. For a second nobody waits for who asks first: many who
            # ask for what is not there would be served one after the other.
            set beresp.uncacheable = true;
            set beresp.ttl = 1s;
            return (deliver);
        }
        unset beresp.http.Set-Cookie;
        unset beresp.http.Vary;
        unset beresp.http.ETag;
        set beresp.ttl = 3650d;
        set beresp.grace = 0s;
        set beresp.keep = 0s;
    }
    return (deliver);
}

sub vcl_backend_error {
    # The other origin may be up.
    if (bereq.retries < 1) {
        return (retry);
    }
}

sub vcl_deliver {
    set resp.http.Cache-Control = "no-cache";
    set resp.http.X-Content-Type-Options = "nosniff";
    unset resp.http.Via;
    unset resp.http.X-Varnish;
    unset resp.http.Age;
}

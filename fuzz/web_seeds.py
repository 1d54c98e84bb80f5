"""Requests of HTTP clients."""
# The first byte of each says how many bytes are sent at a time: one, and eight times that number.
HOST = b" HTTP/1.1\r\nHost: localhost\r\n\r\n"
WEB = {
    "interfaces": b"\xffGET /api/v1/interfaces" + HOST,
    "groups": b"\xffGET /api/v1/interfaces/eth0/groups" + HOST,
    "page-of-groups": b"\x01GET /api/v1/interfaces/eth0/groups?from=239.0.0.9&limit=7" + HOST,
    "group": b"\xffGET /api/v1/interfaces/eth0/groups/239.0.0.1" + HOST,
    "pipelined": b"\xffGET /api/v1/agent" + HOST + b"HEAD /api/v1/counters" + HOST +
                 b"GET /api/v1/config" + HOST,
    "events": b"\xffGET /api/v1/events HTTP/1.1\r\nHost: [::1]:9645\r\nLast-Event-ID: 1-1\r\n\r\n",
    "metrics": b"\xffGET /metrics" + HOST,
    "metrics-of-groups": b"\x05GET /metrics?groups=10000" + HOST + b"GET /metrics?groups=0" + HOST,
    "old": b"\x00GET /api/v1/interfaces/eth0/groups HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n",
    "body": b"\xffPOST / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n"
            b"1\r\nx\r\n",
    "wrong-code": b"\xffGET /%2e%2e/%zz" + HOST,
    "other-host": b"\xffGET / HTTP/1.1\r\nHost: other.example\r\n\r\n",
    "upgrade": b"\xffGET / HTTP/1.1\r\nHost: localhost\r\nUpgrade: x\r\n"
               b"Expect: 100-continue\r\n\r\n",
}

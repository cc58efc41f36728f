"""Prints randomly made requests and the Authorization that botocore computes for each.

Usage: botocore_signatures.py COUNT SEED

One request per line, fields apart by tabs: access key, secret key, region, seconds since 1970,
method, URL, "signed" or "unsigned", body, Authorization, then the headers as name, value, ...
Texts are hexadecimal UTF-8. The URL is written in one of its many equivalent ways; botocore gets
the canonical one. Left out is only what the signer does differently on purpose: values with outer
or repeated blanks, and values of repeated query names out of order.
"""

import random
import sys
from datetime import datetime, timezone
from urllib.parse import quote, unquote

from botocore.auth import S3SigV4Auth
from botocore.awsrequest import AWSRequest
from botocore.credentials import Credentials

PATH_LITERALS = set("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789!$&'()*+,-./:=@_~")
QUERY_LITERALS = PATH_LITERALS - set("&=") | set(";?")
ALPHABET = "abcXYZ019 -._~!$&'()*+,/:;=?@#%[]{}|\\^`\"<>\t\u00e8\u0301\u4e2d\U0001f600"


class UnsignedPayloadAuth(S3SigV4Auth):
    def payload(self, request):
        return "UNSIGNED-PAYLOAD"


def text(rng, longest, alphabet=ALPHABET):
    return "".join(rng.choice(alphabet) for _ in range(rng.randint(0, longest)))


def spelled(rng, plain, literals):
    """One of the ways to write `plain` in a URL."""
    pieces = []
    for character in plain:
        if character in literals and (character == "/" or rng.random() < 0.7):
            pieces.append(character)
            continue
        escaped = "".join(f"%{byte:02X}" for byte in character.encode())
        pieces.append(escaped.lower() if rng.random() < 0.3 else escaped)
    return "".join(pieces)


def canonical(plain, safe=""):
    return quote(plain.encode(), safe="-._~" + safe)


def query_items(rng):
    items = []
    for _ in range(rng.choice([0, 0, 1, 2, 5])):
        name = text(rng, 6)
        values = sorted({canonical(text(rng, 8)): None for _ in range(rng.choice([1, 1, 3]))})
        if all(name != other for other, _ in items):
            items += [(name, value) for value in values]
    return items


def urls(rng):
    """The URL as the signer gets it, as botocore gets it, and the host name."""
    host = rng.choice(["store.example", "127.0.0.1", "[::1]", "a-b.c"])
    origin = rng.choice(["http://", "https://"]) + host + rng.choice(["", ":9000", ":1"])
    path = "/" + text(rng, 20)
    while path.startswith("//") or "\0" in path:
        path = "/" + text(rng, 20)
    items = query_items(rng)
    written = origin + spelled(rng, path, PATH_LITERALS)
    plain = origin + canonical(path, "/")
    if items:
        loose = []
        for name, value in items:
            bare = value == "" and rng.random() < 0.5 and name != ""
            spelled_name = spelled(rng, name, QUERY_LITERALS)
            loose.append(spelled_name if bare else
                         spelled_name + "=" + spelled(rng, unquote(value), QUERY_LITERALS))
        written += "?" + "&".join(loose)
        plain += "?" + "&".join(f"{canonical(name)}={value}" for name, value in items)
    return written, plain, host


def authorization(auth, method, url, headers, body, when):
    request = AWSRequest(method=method, url=url, headers=dict(headers), data=body)
    request.context["timestamp"] = when.strftime("%Y%m%dT%H%M%SZ")
    auth._modify_request_before_signing(request)
    canonical_request = auth.canonical_request(request)
    signature = auth.signature(auth.string_to_sign(request, canonical_request), request)
    auth._inject_signature_to_request(request, signature)
    return request.headers["Authorization"]


def line(rng):
    access, secret = text(rng, 20, "ABC123"), text(rng, 80, "abc/+XYZ\u00e8")
    region = rng.choice(["us-east-1", "eu-1", "", "default"])
    when = datetime.fromtimestamp(rng.randint(0, 2**32), timezone.utc)
    method = rng.choice(["GET", "PUT", "POST", "DELETE", "HEAD"])
    written, plain, host = urls(rng)
    headers = {}
    for name in rng.sample(["Content-Type", "x-amz-meta-a", "X-Amz-Meta-B", "Range", "If-Match",
                            "cache-control", "x-amz-acl"], rng.randint(0, 4)):
        headers[name] = " ".join(text(rng, 9, "abcXYZ019-;=/,\"*").split()) or "v"
    body = rng.randbytes(rng.choice([0, 1, 55, 56, 64, 1000]))
    unsigned = rng.random() < 0.1
    auth = (UnsignedPayloadAuth if unsigned else S3SigV4Auth)(
        Credentials(access, secret), "s3", region)
    value = authorization(auth, method, plain, {**headers, "Host": host}, body, when)
    fields = [access, secret, region, str(int(when.timestamp())), method, written,
              "unsigned" if unsigned else "signed", body, value]
    for name, content in headers.items():
        fields += [name, content]
    return "\t".join((f if isinstance(f, bytes) else f.encode()).hex() for f in fields)


def main():
    rng = random.Random(int(sys.argv[2]))
    for _ in range(int(sys.argv[1])):
        print(line(rng))


if __name__ == "__main__":
    main()

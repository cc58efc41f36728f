#!/usr/bin/python3
"""A small S3 client for tests: signed by botocore, so that it shares nothing with the engine.

usage: client.py ENV COMMAND [ARGUMENT...]

ENV is the file that the store's start script writes. Commands:
  mkbucket              makes the bucket; it may exist
  put KEY FILE [TYPE]   stores the file's bytes, with a content type if given
  get KEY               writes the object's bytes to standard output
  head KEY              {"key", "size", "etag", "contentType"}
  list [PREFIX]         [{"key", "size", "etag"}...], all of them
  delete KEY            removes the object; it may be missing
  list-uploads [PREFIX] [{"key", "uploadId"}...], unfinished multipart uploads
Answers are JSON on standard output. Status 4: nothing to get or head. Status 1: anything else.
"""
import http.client
import json
import sys
import xml.etree.ElementTree as ElementTree
from urllib.parse import quote, unquote, urlencode, urlsplit

from botocore.auth import S3SigV4Auth
from botocore.awsrequest import AWSRequest
from botocore.credentials import Credentials

NOT_FOUND = 4


class Failure(Exception):
    def __init__(self, status, body):
        super().__init__(f"{status} {body.decode(errors='replace')}")
        self.status = status


class Store:
    def __init__(self, env):
        self.endpoint = urlsplit(env["S3_ENDPOINT"])
        self.bucket = env["S3_BUCKET"]
        credentials = Credentials(env["S3_ACCESS_KEY"], env["S3_SECRET_KEY"])
        self.signer = S3SigV4Auth(credentials, "s3", env["S3_REGION"])

    def send(self, method, key=None, query=None, body=b"", headers=None):
        path = "/" + self.bucket + ("" if key is None else "/" + quote(key, safe="/-_.~"))
        target = path + ("?" + urlencode(query, quote_via=quote) if query else "")
        request = AWSRequest(method, self.endpoint.geturl() + target, headers or {}, body)
        self.signer.add_auth(request)
        connection = http.client.HTTPConnection(self.endpoint.netloc, timeout=60)
        connection.request(method, target, body or None, dict(request.headers.items()))
        answer = connection.getresponse()
        content = answer.read()
        connection.close()
        if answer.status >= 300:
            raise Failure(answer.status, content)
        return answer, content

    def pages(self, query):
        """The listings that `query` gives, page by page; the caller moves its start."""
        while True:
            page = ElementTree.fromstring(self.send("GET", query=query | {"encoding-type": "url"})[1])
            yield page
            if page.findtext("{*}IsTruncated") != "true":
                return

    def list(self, prefix):
        objects = []
        query = {"list-type": "2", "prefix": prefix}
        for page in self.pages(query):
            for entry in page.iterfind("{*}Contents"):
                objects.append({
                    "key": unquote(entry.findtext("{*}Key")),
                    "size": int(entry.findtext("{*}Size")),
                    "etag": entry.findtext("{*}ETag"),
                })
            query["start-after"] = objects[-1]["key"] if objects else ""
        return objects

    def list_uploads(self, prefix):
        uploads = []
        query = {"uploads": "", "prefix": prefix}
        for page in self.pages(query):
            for entry in page.iterfind("{*}Upload"):
                uploads.append({
                    "key": unquote(entry.findtext("{*}Key")),
                    "uploadId": entry.findtext("{*}UploadId"),
                })
            query["key-marker"] = uploads[-1]["key"] if uploads else ""
            query["upload-id-marker"] = uploads[-1]["uploadId"] if uploads else ""
        return uploads

    def make_bucket(self):
        try:
            self.send("PUT")
        except Failure as failure:
            if failure.status != 409:
                raise

    def put(self, key, file, content_type=None):
        with open(file, "rb") as opened:
            body = opened.read()
        self.send("PUT", key, body=body, headers={"Content-Type": content_type} if content_type else None)

    def head(self, key):
        answer = self.send("HEAD", key)[0]
        return {
            "key": key,
            "size": int(answer.headers["Content-Length"]),
            "etag": answer.headers["ETag"],
            "contentType": answer.headers["Content-Type"],
        }


def read_environment(path):
    with open(path) as lines:
        return dict(line.rstrip("\n").split("=", 1) for line in lines)


def run(store, command, arguments):
    if command == "mkbucket":
        store.make_bucket()
    elif command == "put":
        store.put(*arguments)
    elif command == "get":
        sys.stdout.buffer.write(store.send("GET", *arguments)[1])
    elif command == "head":
        print(json.dumps(store.head(*arguments)))
    elif command == "list":
        print(json.dumps(store.list(*arguments or [""])))
    elif command == "delete":
        store.send("DELETE", *arguments)
    elif command == "list-uploads":
        print(json.dumps(store.list_uploads(*arguments or [""])))
    else:
        sys.exit(__doc__)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    try:
        run(Store(read_environment(sys.argv[1])), sys.argv[2], sys.argv[3:])
    except Failure as failure:
        if failure.status == 404 and sys.argv[2] in ("get", "head"):
            sys.exit(NOT_FOUND)
        sys.exit(str(failure))


if __name__ == "__main__":
    main()

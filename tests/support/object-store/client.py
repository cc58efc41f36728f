#!/usr/bin/python3
"""A client of the object store for tests: botocore, which shares no code with the engine.

usage: client.py ENV mkbucket | put KEY FILE [TYPE] | get KEY | head KEY | list [PREFIX] |
                     delete KEY | list-uploads [PREFIX]

ENV is the file that the store's start script writes. `head`, `list` and `list-uploads` write JSON.
Status 4: nothing to get or head. Status 1: anything else that went wrong.
"""
import json
import pathlib
import sys

import botocore.session
from botocore.config import Config
from botocore.exceptions import ClientError

NOT_FOUND = 4


def connect(env):
    return botocore.session.get_session().create_client(
        "s3", env["S3_REGION"], endpoint_url=env["S3_ENDPOINT"],
        aws_access_key_id=env["S3_ACCESS_KEY"], aws_secret_access_key=env["S3_SECRET_KEY"],
        config=Config(proxies={}, s3={"addressing_style": "path"}, retries={"max_attempts": 0}))


def described(entry, **more):
    return {"key": entry["Key"], "size": entry["Size"], "etag": entry["ETag"]} | more


def run(store, bucket, command, key="", *arguments):
    def pages(operation, name):
        found = store.get_paginator(operation).paginate(Bucket=bucket, Prefix=key)
        return [entry for page in found for entry in page.get(name, [])]

    match command:
        case "mkbucket":
            store.create_bucket(Bucket=bucket)
        case "put":
            content_type = {"ContentType": name for name in arguments[1:]}
            body = pathlib.Path(arguments[0]).read_bytes()
            store.put_object(Bucket=bucket, Key=key, Body=body, **content_type)
        case "get":
            sys.stdout.buffer.write(store.get_object(Bucket=bucket, Key=key)["Body"].read())
        case "head":
            head = store.head_object(Bucket=bucket, Key=key)
            head |= {"Key": key, "Size": head["ContentLength"]}
            print(json.dumps(described(head, contentType=head["ContentType"])))
        case "list":
            print(json.dumps([described(entry) for entry in pages("list_objects_v2", "Contents")]))
        case "delete":
            store.delete_object(Bucket=bucket, Key=key)
        case "list-uploads":
            uploads = pages("list_multipart_uploads", "Uploads")
            print(json.dumps([{"key": u["Key"], "uploadId": u["UploadId"]} for u in uploads]))
        case _:
            sys.exit(__doc__)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    env = dict(line.split("=", 1) for line in pathlib.Path(sys.argv[1]).read_text().splitlines())
    try:
        run(connect(env), env["S3_BUCKET"], *sys.argv[2:])
    except ClientError as error:
        missing = error.response["ResponseMetadata"]["HTTPStatusCode"] == 404
        sys.exit(NOT_FOUND if missing and sys.argv[2] in ("get", "head") else str(error))


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""A client of the object store for tests: botocore, which shares no code with the engine.

usage: client.py ENV mkbucket | put KEY FILE TYPE | get KEY | head KEY | list PREFIX | delete KEY |
                     list-uploads PREFIX

ENV is the file that the store's start script writes. `head`, `list` and `list-uploads` write lines
of words with tabs between them.
Status 4: nothing to get or head. Status 1: anything else that went wrong.
"""
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


def run(store, bucket, command, key="", file=None, content_type=None):
    def write_rows(operation, name, *fields):
        for page in store.get_paginator(operation).paginate(Bucket=bucket, Prefix=key):
            for entry in page.get(name, []):
                print(*(entry[field] for field in fields), sep="\t")

    match command:
        case "mkbucket":
            store.create_bucket(Bucket=bucket)
        case "put":
            store.put_object(Bucket=bucket, Key=key, Body=pathlib.Path(file).read_bytes(),
                             ContentType=content_type)
        case "get":
            sys.stdout.buffer.write(store.get_object(Bucket=bucket, Key=key)["Body"].read())
        case "head":
            head = store.head_object(Bucket=bucket, Key=key)
            print(key, head["ContentLength"], head["ETag"], head["ContentType"], sep="\t")
        case "list":
            write_rows("list_objects_v2", "Contents", "Key", "Size", "ETag")
        case "delete":
            store.delete_object(Bucket=bucket, Key=key)
        case "list-uploads":
            write_rows("list_multipart_uploads", "Uploads", "Key", "UploadId")
        case _:
            sys.exit(__doc__)


if __name__ == "__main__":
    settings = pathlib.Path(sys.argv[1]).read_text().splitlines()
    env = dict(line.split("=", 1) for line in settings)
    try:
        run(connect(env), env["S3_BUCKET"], *sys.argv[2:])
    except ClientError as error:
        missing = error.response["ResponseMetadata"]["HTTPStatusCode"] == 404
        sys.exit(NOT_FOUND if missing and sys.argv[2] in ("get", "head") else str(error))

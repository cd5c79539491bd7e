#!/usr/bin/env python3
"""Prints a whole database, byte for byte as `qimctl dump` does.

    ./dump.py [DATABASE]
"""
import json
import sys

import qim


def plain(value):
    """A member of a record as the format has it."""
    if isinstance(value, qim.Bandwidth):
        return {name: plain(member) for name, member in value.members().items()}
    if isinstance(value, list):
        return [{"type": each.type, "args": each.args.hex()} for each in value]
    if isinstance(value, int) and value > qim.MAX_JSON_NUMBER:
        return f"0x{value:016x}"
    return value.hex() if isinstance(value, bytes) else value


def link(found):
    nodes = {"node": found.node, "node2": found.node2}
    carried = {name: f"0x{node:08x}" for name, node in nodes.items() if node or name == "node"}
    carried.update({name: getattr(found, name) for name in ("val", "tag") if getattr(found, name)})
    return carried if len(carried) > 1 else carried["node"]


def form(node):
    stored, members, dset = node.stored, node.members(), node.dset
    text = {"id": f"0x{node.id:08x}", "type": node.kind}
    if not node.exact:
        text.update(type="Raw", body={"flags": stored.flags, "tlv": stored.tlv.hex()})
        dset = stored.dset.hex()
    elif not isinstance(node, (qim.Dset, qim.DsetNoname)):
        text.update(flags=node.node_flags, group=node.group)
        text.update({"body": {name: plain(value) for name, value in members.items()}} if members else {})
    private = {client: data.hex() for client, data in stored.private.items()}
    others = {f"0x{client:08x}": data for client, data in private.items() if client != qim.CLIENT_ID}
    rest = {"links": {each.name: link(each) for each in stored.links}, "dset": dset,
            "priv": private.get(qim.CLIENT_ID), "private": others}
    text.update({name: value for name, value in rest.items() if value})
    return json.dumps(text, separators=(",", ":"), ensure_ascii=False)


with qim.Database(sys.argv[1] if len(sys.argv) > 1 else None) as database, database.session() as session:
    checksum, end = 0, '{"$schema":"urn:qim:schema:policy:1","format":"qim-policy","version":1,"nodes":[\n'
    for node in session:
        line, end = end + form(node), ",\n"
        checksum = qim.crc32c(line.encode(), checksum)
        sys.stdout.write(line)
    checksum = qim.crc32c(b"\n],\n", checksum)
    sys.stdout.write(f'\n],\n"checksum":"{checksum:08x}"}}\n')

"""Packet policy of a network device as typed nodes.

    import qim

    with qim.Database("policy.db") as database, database.session() as session:
        for node in session:
            print(node.id, node.kind, node.members())

A session holds one commit still; nodes are read through it. `Database.watch` yields changes as they are
committed, `Database.policy` has the access lists and says what they decide about packets, and
`Database.apply` makes a database hold what files say.

Failures of the database are `Error`, with the status and its name; files and packets that can't be
understood are `InputError`. Numbers are those of the C headers, in host order; bandwidths are in bytes or
packets a second, as their units say; identifiers and flags have 32 bits.

Threads: a database may be used by several threads, a session by one at a time. Other threads of Python go
on while a call waits for the database, reads access lists, applies files or waits for changes.
"""
from ._qim import *  # noqa: F403

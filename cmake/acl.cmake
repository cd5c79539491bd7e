# libqimacl: what clients of libqimcommon share about access lists, a static library for programs in C.

qim_layer(acl acl USES qim_headers OPTIONS ${qim_options})
set_target_properties(acl PROPERTIES OUTPUT_NAME qimacl)

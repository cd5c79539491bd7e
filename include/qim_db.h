/*
 * qim_db.h - sessions, the node database's own operations under this library's names, diagnostics.
 *
 * The part of qim.h that speaks to the database and not of policies. Clients include qim.h, whose
 * conventions hold here, too.
 *
 * Plain C99; usable from C++.
 */
#ifndef QIM_DB_H
#define QIM_DB_H

#include "rov_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Sessions ================================================================================ */

/* Opens a read-only session on the newest commit of database `db`: rov_ses_open_ro. It is closed
 * with qim_ses_close (qim_acl.h), or by the database's own function, rov_ses_close (rov.h). */
uint32_t qim_ses_open_ro(uint32_t db, uint32_t* ses_out);
/* The base session of `ses`, which sees the newest commit at every call: rov_ses_orig_handle. */
uint32_t qim_ses_orig_handle(uint32_t ses, uint32_t* base_out);

/* ==== The database's own operations =========================================================== */

/* Each calls the database's operation of the same name (rov_ for qim_) with the same arguments and
 * returns its result unchanged: rov_db_ntf for qim_db_ntf. What is said of that one in rov.h, and on
 * its page of the manual, is what it does, who owns what, and every status. */

/* Private data of the client on the database and on its sessions. qim_db_priv_recover is
 * qim_db_priv_recover2 with flags 0. */
uint32_t qim_db_priv_write(uint32_t db, const rov_priv_t* priv);
uint32_t qim_db_priv_delete(uint32_t db, uint32_t key);
uint32_t qim_db_priv_post(uint32_t db, uint32_t key, uint32_t len, const void* data);
uint32_t qim_db_priv_recover2(uint32_t db, uint32_t after_key, uint32_t flags, rov_priv_t* priv);
uint32_t qim_db_priv_read(uint32_t db, rov_priv_t* priv);
uint32_t qim_db_priv_recover(uint32_t db, uint32_t after_key, rov_priv_t* priv);
uint32_t qim_ses_priv_write(uint32_t ses, const rov_priv_t* priv, uint32_t flags);
uint32_t qim_ses_priv_delete(uint32_t ses, uint32_t key, uint32_t flags);
uint32_t qim_ses_priv_recover(uint32_t ses, uint32_t after_key, rov_priv_t* priv);
uint32_t qim_ses_priv_recover2(uint32_t ses, uint32_t after_key, uint32_t flags, rov_priv_t* priv);
uint32_t qim_ses_priv_read(uint32_t ses, rov_priv_t* priv);

/* Sessions: whether one can be used still, and saying that it is wanted (rov_ses_timeout; the idle
 * limit is the argument of qim_lib_defaults, in seconds, 0 = none); the next write for one user. */
uint32_t qim_db_ses_exists(uint32_t db, uint32_t ses, uint32_t* exists);
uint32_t qim_ses_timeout(uint32_t ses);
uint32_t qim_db_ses_lock_grant(uint32_t db, uint64_t user);

/* Snapshots that are kept under a name, alone or in a group; qim_ses_open_ro opens sessions on
 * their handles, which end with the database's. qim_db_uri_rm removes one, or a group. */
uint32_t qim_db_snapshot(uint32_t db, const char* name, uint32_t* snapshot);
uint32_t qim_db_uri_snapshot(uint32_t db, const char* uri, const char* name, uint32_t* snapshot);
uint32_t qim_db_uri_rm(uint32_t db, const char* uri);

/* Changes, and who made them. The node of a rov_change_t from qim_process_msg is in the database's
 * form: qim_from_rov_node_id. A node that was deleted can only be asked for in a session that was open
 * before. qim_msg_is_qim is rov_msg_is_rov. */
uint32_t qim_db_ntf(uint32_t db, rov_ntf_t* ntf);
uint32_t qim_process_msg(uint32_t db, void* msg, uint32_t room, uint32_t* len);
uint32_t qim_msg_is_qim(const void* msg);
uint32_t qim_db_usr_group(uint32_t db, uint32_t group);
uint32_t qim_usr_id_info(uint32_t db, uint64_t user, rov_usr_t* info);

/* Publications. */
uint32_t qim_ps_datasize(uint32_t ses, const void* dset_name, uint32_t* size);
uint32_t qim_ps_data(uint32_t ses, const void* dset_name, uint32_t len, void* buf);

/* Failures of the past, and what may be retried. */
uint32_t qim_err_getprev(rov_err_t* err);
uint32_t qim_err_retry_ok(uint32_t status, uint32_t tries);
uint32_t qim_cl_err_retry_ok(uint32_t status, uint32_t tries);

/* Registers the logger of the database and of this library's reports: the context keeps it even
 * when the database refuses it, until a start refreshes the context (qim_lib_init). NULL takes it
 * away. In per-thread mode it is the calling thread's. */
uint32_t qim_db_reg_logger(uint32_t db, rov_logger_fn logger, void* arg);
/* Sets the debug flags of the database and, in the same way and for as long, of the context
 * (QIM_DBG_*). */
uint32_t qim_db_debug(uint32_t db, uint32_t flags);
/* The database's show of nodes, data sets and itself. */
uint32_t qim_db_show_internal(uint32_t db, const rov_show_req_t* req);

/* ==== Diagnostics ============================================================================= */

/* What start-up registers with the database's show routine: how to print node TLVs with names,
 * and how to print the TLV value of a data-set name. */
extern const rov_show_t qim_dbg_tlva_handler;
extern const rov_show_t qim_dbg_dsetname;

/* Renders a pair of data-set names (qim_dsetname_t, network order) as one line: lead, a (3 wide),
 * type (hexadecimal, 9), "inp" or "out", b (4), and for an interface name its VDC (3), both VLANs
 * (hexadecimal, 4), both interface indices (hexadecimal, 10), else 39 blanks; then tail. The second
 * name is read as an interface name whatever its format. Both are converted in place for the call
 * and restored, so they must differ: one buffer given twice is printed unconverted. Text over 254
 * characters is cut. Returns a static buffer, valid until the next call: not concurrently. */
char* qim_dbg_dsetname_print(void* name1, void* name2, int a, int b, const char* tail,
                             const char* lead);

#ifdef __cplusplus
}
#endif

#endif

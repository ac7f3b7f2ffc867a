/* The records that db_get and db_put exchange, as plain structures.
 *
 * A record is the same for every program: each offset below is asserted.  A caller may
 * give a shorter buffer or record, which is then read or filled as far as it goes.
 *
 * Texts end with a NUL; where "may be full" is told, a text of the field's whole width
 * has none.  Numbers are in the byte order of the machine.  Bytes named carried... are
 * stored and given back, and this library does not look at them; bytes named spare...
 * are not stored.
 *
 * What a call's keys[0] points at stands with each record.
 */
#ifndef ZVRDB_RECORDS_H
#define ZVRDB_RECORDS_H

#include <stddef.h>
#include <stdint.h>

#if defined(__cplusplus)
#define DB_LAYOUT(name, condition) static_assert(condition, #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define DB_LAYOUT(name, condition) _Static_assert(condition, #name)
#else
#define DB_LAYOUT(name, condition) typedef char db_layout_##name[(condition) ? 1 : -1]
#endif
#define DB_AT(record, member, offset) DB_LAYOUT(record##_##member, offsetof(struct record, member) == (offset))
#define DB_SIZE(record, size) DB_LAYOUT(record##_size, sizeof(struct record) == (size))

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Targets (DB_TRG).  Key: the target's name. ------------------------- */

enum { /* bits of trg_type */
  DB_TRG_NO_CM = 1,
  DB_TRG_CLIENT = 2,
  DB_TRG_BASE = 4,
  DB_TRG_SERVER = 8,
  DB_TRG_MOBILE = 16,
  DB_TRG_LOCAL = 32, /* a target of this server */
  DB_TRG_REMOTE = 128
};
enum { /* bits of trg_mode */
  DB_MODE_PULL = 1,
  DB_MODE_PUSH = 2,
  DB_MODE_FOCAL = 4,
  DB_MODE_FOCAL_POINT = 8,
  DB_MODE_NONE = 16
};
enum { /* trg_os */
  DB_OS_MK6 = 0, DB_OS_MK7 = 2, DB_OS_HP_UX = 3, DB_OS_DOS = 4, DB_OS_WINDOWS = 5, DB_OS_SUNOS = 6,
  DB_OS_SOLARIS = 7, DB_OS_MAC = 8, DB_OS_NCR = 9, DB_OS_NETWARE = 10, DB_OS_WINDOWS_NT = 11, DB_OS_SCO = 12,
  DB_OS_WIN98 = 19, DB_OS_WIN2K = 20, DB_OS_WIN2K_ADV = 21, DB_OS_UNKNOWN = 24,
  DB_OS_ANY = 99 /* passes every filter */
};
#define DB_NO_SERVER 0xFFFFFFFFu
#define DB_MAX_HW_PARMS 128

struct db_hw_parm {
  char name[81];
  char value[81];
};
DB_SIZE(db_hw_parm, 162);

/* Of at most 192 bytes, a get comes from memory. */
struct db_trg {
  char trg_name[64];             /* up to 63 characters */
  char description[60];
  char rgn[8];                   /* may be full; of a local target that of this server */
  char ren[8];                   /* may be full */
  unsigned char carried140[4];
  uint8_t trg_type;
  uint8_t trg_os;
  uint8_t trg_mode;
  uint8_t mob_conn_stat;         /* stored for mobile clients only */
  uint32_t cm_window_start;
  uint32_t cm_window_stop;
  uint32_t dist_window_start;
  uint32_t dist_window_stop;
  uint8_t rbapi_trace;           /* 0 none, 1 ui, 2 daca, 3 both */
  uint8_t log_level;             /* 0 M, 1 N, 2 D */
  uint8_t held_status;           /* 0 released, 1 held */
  uint8_t in_use;                /* 1 in a record read from memory, 0 in one from the file */
  char carried168[16];
  unsigned char trg_status[4];   /* volatile; never taken from a caller's record */
  uint32_t srv_num;              /* number of the server; a get of at most 192 bytes gives a
                                    target without one its own number, a longer one DB_NO_SERVER */
  char srv_name[64];             /* name of the server, "" for none; must be a known target */
  char lan_address[32];
  char customer_name[60];
  char contact_name[60];
  char contact_phone[32];
  char manager_name[60];
  char manager_address[200];
  uint16_t num_hw_parms;         /* entries of hw_parms that are stored */
  unsigned char carried702[286];
  struct db_hw_parm hw_parms[DB_MAX_HW_PARMS];
};
DB_AT(db_trg, description, 64);
DB_AT(db_trg, rgn, 124);
DB_AT(db_trg, ren, 132);
DB_AT(db_trg, carried140, 140);
DB_AT(db_trg, trg_type, 144);
DB_AT(db_trg, trg_os, 145);
DB_AT(db_trg, trg_mode, 146);
DB_AT(db_trg, mob_conn_stat, 147);
DB_AT(db_trg, cm_window_start, 148);
DB_AT(db_trg, cm_window_stop, 152);
DB_AT(db_trg, dist_window_start, 156);
DB_AT(db_trg, dist_window_stop, 160);
DB_AT(db_trg, rbapi_trace, 164);
DB_AT(db_trg, log_level, 165);
DB_AT(db_trg, held_status, 166);
DB_AT(db_trg, in_use, 167);
DB_AT(db_trg, carried168, 168);
DB_AT(db_trg, trg_status, 184);
DB_AT(db_trg, srv_num, 188);
DB_AT(db_trg, srv_name, 192);
DB_AT(db_trg, lan_address, 256);
DB_AT(db_trg, customer_name, 288);
DB_AT(db_trg, contact_name, 348);
DB_AT(db_trg, contact_phone, 408);
DB_AT(db_trg, manager_name, 440);
DB_AT(db_trg, manager_address, 500);
DB_AT(db_trg, num_hw_parms, 700);
DB_AT(db_trg, carried702, 702);
DB_AT(db_trg, hw_parms, 988);
DB_SIZE(db_trg, 21724);

/* Filter of db_init_list for DB_TRG.  A '*' in name ends the prefix and is overwritten
 * with a NUL. */
struct db_trg_filter {
  char name[64];            /* prefix up to '*'; "" for all */
  uint8_t type;             /* bits of trg_type, 0 for any */
  uint8_t spare65;
  uint8_t mode;             /* bits of trg_mode, 0 for any; exactly 4 asks for equality */
  uint8_t os_filter_on;     /* non-zero: the masks count */
  uint16_t os_mask_low;     /* bits for trg_os 0 to 15 */
  uint16_t os_mask_high;    /* bits for trg_os 16 to 31 */
  char server[64];          /* name of the server, "" for any */
  uint16_t exclude_filter;  /* 1: the targets whose names do not match */
};
DB_AT(db_trg_filter, type, 64);
DB_AT(db_trg_filter, mode, 66);
DB_AT(db_trg_filter, os_filter_on, 67);
DB_AT(db_trg_filter, os_mask_low, 68);
DB_AT(db_trg_filter, os_mask_high, 70);
DB_AT(db_trg_filter, server, 72);
DB_AT(db_trg_filter, exclude_filter, 136);
DB_SIZE(db_trg_filter, 138);

/* ---- What hangs on a target.  Key: the target's name. ------------------- */

#define DB_MAX_PARMS 1000

struct db_parm {
  char name[12];
  char value[50];
};
DB_SIZE(db_parm, 62);

/* Parameters (DB_PRM).  A put reads all of its bytes, whatever length it is given. */
struct db_prm {
  char trg_name[64];
  uint16_t num_parms;
  unsigned char spare66[2];
  struct db_parm parms[DB_MAX_PARMS];
  unsigned char spare62068[744];
};
DB_AT(db_prm, num_parms, 64);
DB_AT(db_prm, parms, 68);
DB_SIZE(db_prm, 62812);

/* Shadow record (DB_SHT). */
struct db_sht {
  char trg_name[64];
  uint16_t num_parms;
  unsigned char spare66[2];
  struct db_parm parms[DB_MAX_PARMS];
};
DB_AT(db_sht, num_parms, 64);
DB_AT(db_sht, parms, 68);
DB_SIZE(db_sht, 62068);

/* Hardware (DB_THW).  A put reads all of its bytes, whatever length it is given. */
struct db_thw {
  char trg_name[64];
  uint16_t num_hw_parms;
  unsigned char spare66[2];
  struct db_hw_parm hw_parms[DB_MAX_HW_PARMS];
};
DB_AT(db_thw, num_hw_parms, 64);
DB_AT(db_thw, hw_parms, 68);
DB_SIZE(db_thw, 20804);

/* ---- Target groups.  Key: the group's name. ----------------------------- */

#define DB_MAX_TG_MEMBERS 1000
#define DB_MAX_DTG_MEMBERS 800

/* Target group (DB_TG).  Members are known targets, by name; of a put with an unknown one
 * (DBE_NO_TARGET) nothing is stored.  A put answers DBE_RECORD_REPLACED for a new group as
 * well; DBE_LIMIT_EXCEEDED when there are as many groups of both kinds as there may be. */
struct db_tg {
  char name[64];             /* may be full */
  char description[60];
  unsigned char carried124[8];
  char short_name[8];
  unsigned char carried140[4];
  uint8_t type;
  uint8_t os;
  uint8_t mode;
  uint8_t carried147;
  uint16_t num_members;
  uint16_t num_tsps;
  char members[DB_MAX_TG_MEMBERS][64];
};
DB_AT(db_tg, description, 64);
DB_AT(db_tg, carried124, 124);
DB_AT(db_tg, short_name, 132);
DB_AT(db_tg, type, 144);
DB_AT(db_tg, os, 145);
DB_AT(db_tg, mode, 146);
DB_AT(db_tg, num_members, 148);
DB_AT(db_tg, num_tsps, 150);
DB_AT(db_tg, members, 152);
DB_SIZE(db_tg, 64152);

/* Dynamic target group (DB_DTG): a selection text besides. */
struct db_dtg {
  char name[64];             /* may be full */
  char description[60];
  unsigned char carried124[8];
  char short_name[8];
  unsigned char carried140[4];
  uint8_t type;
  uint8_t os;
  uint8_t mode;
  uint8_t carried147;
  uint16_t num_members;
  uint16_t num_tsps;
  unsigned char carried152[148];
  char selection[4096];
  char members[DB_MAX_DTG_MEMBERS][64];
};
DB_AT(db_dtg, description, 64);
DB_AT(db_dtg, carried124, 124);
DB_AT(db_dtg, short_name, 132);
DB_AT(db_dtg, type, 144);
DB_AT(db_dtg, num_members, 148);
DB_AT(db_dtg, num_tsps, 150);
DB_AT(db_dtg, carried152, 152);
DB_AT(db_dtg, selection, 300);
DB_AT(db_dtg, members, 4396);
DB_SIZE(db_dtg, 55596);

/* ---- Change files, products, filesets ----------------------------------- */

/* Structured name of a change file: token i begins at text + token[i]; 255 ends the
 * tokens, of which there are at most eleven.  Unused text is zero. */
struct db_cf_name {
  uint8_t token[11];
  char text[65];
};
DB_AT(db_cf_name, text, 11);
DB_SIZE(db_cf_name, 76);

/* Catalog record (DB_CAT).  Key: a db_cf_name.  Of at most 164 bytes, a get comes from
 * memory. */
struct db_cat {
  struct db_cf_name cf_name;
  uint32_t carried76;
  unsigned char carried80[4];
  uint16_t carried84;
  unsigned char carried86[2];
  uint16_t carried88;
  uint8_t carried90;
  uint8_t carried91;
  unsigned char carried92[10];
  char text102[244];
  char text346[4];
  uint16_t carried350;
  uint16_t carried352;
  unsigned char carried354[2];
  uint32_t carried356;
  uint8_t cf_flags;
  unsigned char carried361[3];
  char lines[8][256];
  unsigned char carried2412[50];
  uint8_t carried2462;
  unsigned char spare2463;
};
DB_AT(db_cat, carried76, 76);
DB_AT(db_cat, carried84, 84);
DB_AT(db_cat, carried88, 88);
DB_AT(db_cat, carried90, 90);
DB_AT(db_cat, carried92, 92);
DB_AT(db_cat, text102, 102);
DB_AT(db_cat, text346, 346);
DB_AT(db_cat, carried350, 350);
DB_AT(db_cat, carried352, 352);
DB_AT(db_cat, carried356, 356);
DB_AT(db_cat, cf_flags, 360);
DB_AT(db_cat, lines, 364);
DB_AT(db_cat, carried2412, 2412);
DB_AT(db_cat, carried2462, 2462);
DB_SIZE(db_cat, 2464);

/* Key of a product and of a fileset, and the head of their records. */
struct db_prd_key {
  struct db_cf_name cf_name;
  uint16_t product_id;
  uint16_t fileset_id; /* filesets only */
};
DB_AT(db_prd_key, product_id, 76);
DB_AT(db_prd_key, fileset_id, 78);
DB_SIZE(db_prd_key, 80);

/* Product (DB_PRD). */
struct db_prd {
  struct db_prd_key key;
  char text80[145];
  char text225[65];
  char text290[65];
  char text355[65];
  char text420[257];
  unsigned char spare677[3];
  uint16_t carried680;
};
DB_AT(db_prd, text80, 80);
DB_AT(db_prd, text225, 225);
DB_AT(db_prd, text290, 290);
DB_AT(db_prd, text355, 355);
DB_AT(db_prd, text420, 420);
DB_AT(db_prd, carried680, 680);
DB_SIZE(db_prd, 682);

/* Fileset (DB_FST). */
struct db_fst {
  struct db_prd_key key;
  char text80[145];
  char text225[65];
  char text290[257];
  unsigned char spare547;
};
DB_AT(db_fst, text80, 80);
DB_AT(db_fst, text225, 225);
DB_AT(db_fst, text290, 290);
DB_SIZE(db_fst, 548);

/* Entry of a list that db_start_list of DB_CAT fills.  db_cm_by_trg tells change files by
 * this number. */
struct db_cat_entry {
  uint16_t cf_number;
  uint8_t name_diff;
  uint8_t cf_gen;
};
DB_SIZE(db_cat_entry, 4);

/* Status of a change file on a target (DB_CMS).  Keys: the target's name, a db_cf_name.
 * A put stores cm_status and cm_details.  A get of the default status, of a pair that has
 * no record, fills the names, cm_status with 128 and cm_details[8] with the class that
 * db_get_type tells; it leaves all other bytes of the buffer alone, and needs 153 of them
 * whatever length it is given. */
struct db_cms {
  char trg_name[64];
  struct db_cf_name cf_name;
  uint8_t cm_status;
  unsigned char carried141[3];
  unsigned char cm_details[32];
};
DB_AT(db_cms, cf_name, 64);
DB_AT(db_cms, cm_status, 140);
DB_AT(db_cms, cm_details, 144);
DB_SIZE(db_cms, 176);

/* ---- Users, profiles, access keys --------------------------------------- */

#define DB_MAX_LOGIN_TARGETS 16

/* User (DB_USR).  Key: the user's name, up to 16 characters.
 * A deletion marks the record; a deleted user is not found and not listed.  A put changes the
 * caller's record: it clears deleted, and sets last_seqno to 0 for a new user (DBE_OK) or to
 * what the deleted user of that name had (DBE_OK); for one that is there it takes the
 * record's (DBE_RECORD_REPLACED).  A put of fewer than 132 bytes stores no last_seqno. */
struct db_usr {
  char usr_name[16];            /* may be full */
  uint32_t deleted;             /* non-zero: counts as absent */
  unsigned char carried20[16];
  unsigned char spare36[4];
  char description[60];
  char profile[16];             /* name of an authorization profile */
  uint32_t tak_mask;
  uint32_t dak_mask;
  uint32_t all_targets;         /* non-zero: may log in everywhere, the list is empty */
  uint32_t last_seqno;
  unsigned char carried132[76];
  uint16_t login_default;
  uint16_t num_login_trgs;
  char login_trgs[DB_MAX_LOGIN_TARGETS][64]; /* known targets, by name */
};
DB_AT(db_usr, deleted, 16);
DB_AT(db_usr, description, 40);
DB_AT(db_usr, profile, 100);
DB_AT(db_usr, tak_mask, 116);
DB_AT(db_usr, dak_mask, 120);
DB_AT(db_usr, all_targets, 124);
DB_AT(db_usr, last_seqno, 128);
DB_AT(db_usr, login_default, 208);
DB_AT(db_usr, num_login_trgs, 210);
DB_AT(db_usr, login_trgs, 212);
DB_SIZE(db_usr, 1236);

/* Authorization profile (DB_APR).  Key: its name, up to 16 characters. */
struct db_apr {
  char name[16];       /* may be full */
  uint8_t config;      /* 0 none, 1 view, 2 modify */
  uint8_t prep;        /* likewise */
  uint8_t cm;          /* bits: 1 install, 2 execute, 4 authorise, 8 activate */
  uint8_t dist;        /* 0 none, 1 send, 2 retrieve, 3 all */
  uint8_t tcq;         /* as config */
  uint8_t system;      /* as config */
  uint8_t target;      /* 0 all, 1 own target */
  uint8_t carried23;
  uint8_t carried24;
  unsigned char carried25[3];
};
DB_AT(db_apr, config, 16);
DB_AT(db_apr, target, 22);
DB_AT(db_apr, carried25, 25);
DB_SIZE(db_apr, 28);

/* Access keys (DB_TAK, DB_DAK): one table each, without a key and without a transaction of
 * its own.  Held in memory from the first get or put on: all processes see a put at once, and
 * one that was part of a transaction on DB_APR even after that is rolled back.  A put of fewer
 * bytes than the table has stores a NUL as its last byte in the file, and zeros behind. */
#define DB_ACCESS_KEYS 32
struct db_access_key {
  char name[12];
  uint32_t mask;
  char description[60];
};
DB_AT(db_access_key, mask, 12);
DB_AT(db_access_key, description, 16);
DB_SIZE(db_access_key, 76);
struct db_ak {
  struct db_access_key keys[DB_ACCESS_KEYS];
};
DB_SIZE(db_ak, 2432);

/* ---- User requests.  Key: the request identifier of the type, which is also the
 * head of its record. ------------------------------------------------------ */

/* DB_RQR */
struct db_rqr_id {
  char user[16];           /* may be full */
  char src_domain[64];     /* server where the request arose: a known target */
  uint32_t seq_no;
  uint16_t recursion_no;
  unsigned char spare86[2];
};
DB_AT(db_rqr_id, src_domain, 16);
DB_AT(db_rqr_id, seq_no, 80);
DB_AT(db_rqr_id, recursion_no, 84);
DB_SIZE(db_rqr_id, 88);

/* DB_RQF, and the head of DB_RQV records */
struct db_rqf_id {
  struct db_rqr_id request;
  char subreq_id[16];      /* function; may be full */
};
DB_AT(db_rqf_id, subreq_id, 88);
DB_SIZE(db_rqf_id, 104);

/* DB_FAN */
struct db_fan_id {
  struct db_rqf_id function;
  char rgn[8];             /* may be full */
  char ren[8];             /* may be full */
};
DB_AT(db_fan_id, rgn, 104);
DB_AT(db_fan_id, ren, 112);
DB_SIZE(db_fan_id, 120);

/* DB_RQD */
struct db_rqd_id {
  struct db_rqf_id function;
  char domain[64];         /* destination server: a known target */
};
DB_AT(db_rqd_id, domain, 104);
DB_SIZE(db_rqd_id, 168);

/* DB_RQT */
struct db_rqt_id {
  struct db_rqd_id destination;
  char target[64];         /* destination target: a known target */
};
DB_AT(db_rqt_id, target, 168);
DB_SIZE(db_rqt_id, 232);

/* Bytes of the whole records. */
enum {
  DB_RQR_LEN = 4222,
  DB_RQF_LEN = 10204,
  DB_FAN_LEN = 25198, /* u16 at 124: bytes of the block at 638 */
  DB_RQD_LEN = 10204,
  DB_RQT_LEN = 10204, /* report of DB_REPORT_LEN bytes at 520 */
  DB_RQV_LEN = 64620, /* u32 at 616: bytes of the vector at 620 */
  DB_REPORT_LEN = 1060
};

/* Report of a request on a target. */
struct db_report {
  uint16_t type;           /* 1, or 0xFFFF: none, the rest is not stored */
  unsigned char carried2[34];
  char text[1024];
};
DB_AT(db_report, text, 36);
DB_SIZE(db_report, DB_REPORT_LEN);

/* ---- Correlators (DB_COO by request identifier, DB_COI by SNA correlator).  Key: a
 * db_coo whose fields of that side are set. -------------------------------- */
struct db_coo {
  struct db_rqf_id request;
  char origin[64];         /* server that made the correlator */
  uint16_t year;
  uint8_t month;
  uint8_t day;
  uint8_t hour;
  uint8_t minute;
  uint8_t second;
  uint8_t gmt_flag;
  uint32_t sequence;
  uint32_t num_mangled;    /* how often the clock was found set back */
};
DB_AT(db_coo, origin, 104);
DB_AT(db_coo, year, 168);
DB_AT(db_coo, month, 170);
DB_AT(db_coo, day, 171);
DB_AT(db_coo, hour, 172);
DB_AT(db_coo, gmt_flag, 175);
DB_AT(db_coo, sequence, 176);
DB_AT(db_coo, num_mangled, 180);
DB_SIZE(db_coo, 184);

/* ---- Base configuration (DB_CFG): one record, without a key. ------------ */

enum { /* configuration */
  DB_CFG_CLIENT = 0,
  DB_CFG_BASE = 1,
  DB_CFG_SERVER_NO_COMMS = 2,
  DB_CFG_SERVER_WITH_COMMS = 3,
  DB_CFG_REMOTE_ADMIN_SERVER = 4, /* as is any value not told here */
  DB_CFG_REMOTE_ADMIN_BASE = 5
};
struct db_cfg_server {
  char name[64];
  unsigned char carried64[286];
};
DB_SIZE(db_cfg_server, 350);

struct db_cfg {
  char workstation_name[64];
  uint16_t message_log_level;    /* 0 M, 1 N, 2 D */
  uint16_t lan_authorization;
  uint32_t log_file_size;
  uint32_t api_trace_file_size;
  uint32_t trace_file_size;
  uint16_t tcpip_port;
  uint16_t file_system;
  uint8_t machine_type;
  uint8_t configuration;
  uint16_t max_attempts;
  char file_path[256];
  char repository[256];
  char service_area[256];
  char backup_area[256];
  char work_area[256];
  struct db_cfg_server servers[5]; /* the first empty name ends them */
  unsigned char carried3118[1146];
  uint32_t max_connections;
  uint32_t max_targets;
  uint32_t max_user_interfaces;
  uint8_t authorize;             /* 0 none, 1 all */
  uint8_t automatic_client_upgrade;
  uint8_t target_password_authentication;
  uint8_t carried4279;
  uint32_t max_requests;
  uint32_t max_local_targets;
  uint32_t max_server_connections;
  uint32_t max_sts;
  uint32_t daca_idle_time;
  uint32_t daca_retry_time;
  uint32_t sts_idle_time;
  uint32_t sts_retry_time;
  char inventory_program[256];
  uint32_t max_server_targets;
  uint32_t max_snads_routes;
  uint32_t max_sts_routes;
  uint8_t plan_feature;
  uint8_t automatic_target_registration;
  uint8_t automatic_target_inventory;
  uint8_t target_mode;           /* 1 pull, 2 push */
  char target_address[9];
  uint8_t extend_file_system_on_store;
  char os_user[16];
  uint8_t automatic_target_info_update;
  uint8_t automatic_target_deletion;
  unsigned char carried4612[12];
  uint8_t kestra_alert;
  unsigned char carried4625[11];
  uint32_t connection_window_duration;
};
DB_AT(db_cfg, message_log_level, 64);
DB_AT(db_cfg, lan_authorization, 66);
DB_AT(db_cfg, log_file_size, 68);
DB_AT(db_cfg, api_trace_file_size, 72);
DB_AT(db_cfg, trace_file_size, 76);
DB_AT(db_cfg, tcpip_port, 80);
DB_AT(db_cfg, file_system, 82);
DB_AT(db_cfg, machine_type, 84);
DB_AT(db_cfg, configuration, 85);
DB_AT(db_cfg, max_attempts, 86);
DB_AT(db_cfg, file_path, 88);
DB_AT(db_cfg, repository, 344);
DB_AT(db_cfg, service_area, 600);
DB_AT(db_cfg, backup_area, 856);
DB_AT(db_cfg, work_area, 1112);
DB_AT(db_cfg, servers, 1368);
DB_AT(db_cfg, max_connections, 4264);
DB_AT(db_cfg, max_targets, 4268);
DB_AT(db_cfg, max_user_interfaces, 4272);
DB_AT(db_cfg, authorize, 4276);
DB_AT(db_cfg, automatic_client_upgrade, 4277);
DB_AT(db_cfg, target_password_authentication, 4278);
DB_AT(db_cfg, max_requests, 4280);
DB_AT(db_cfg, max_local_targets, 4284);
DB_AT(db_cfg, max_server_connections, 4288);
DB_AT(db_cfg, max_sts, 4292);
DB_AT(db_cfg, daca_idle_time, 4296);
DB_AT(db_cfg, daca_retry_time, 4300);
DB_AT(db_cfg, sts_idle_time, 4304);
DB_AT(db_cfg, sts_retry_time, 4308);
DB_AT(db_cfg, inventory_program, 4312);
DB_AT(db_cfg, max_server_targets, 4568);
DB_AT(db_cfg, max_snads_routes, 4572);
DB_AT(db_cfg, max_sts_routes, 4576);
DB_AT(db_cfg, plan_feature, 4580);
DB_AT(db_cfg, automatic_target_registration, 4581);
DB_AT(db_cfg, automatic_target_inventory, 4582);
DB_AT(db_cfg, target_mode, 4583);
DB_AT(db_cfg, target_address, 4584);
DB_AT(db_cfg, extend_file_system_on_store, 4593);
DB_AT(db_cfg, os_user, 4594);
DB_AT(db_cfg, automatic_target_info_update, 4610);
DB_AT(db_cfg, automatic_target_deletion, 4611);
DB_AT(db_cfg, kestra_alert, 4624);
DB_AT(db_cfg, connection_window_duration, 4636);
DB_SIZE(db_cfg, 4640);

/* ---- SNADS connections (DB_SCN).  Key: the connection's name. ------------ */

enum { /* protocol */
  DB_SCN_APPC = 1,
  DB_SCN_TCPIP = 2,
  DB_SCN_IPX = 4,
  DB_SCN_NBI = 5
};
struct db_scn {
  char connection[16];     /* may be full */
  uint16_t protocol;       /* 0 is read as APPC; any other is written as APPC */
  uint16_t connection_type; /* 1 SNA, 2 STS; 0 is read as SNA */
  char send_tp[9];         /* programs: kept with APPC only */
  unsigned char spare29[3];
  char receive_tp[9];
  unsigned char spare41[3];
  char next_rgn[8];        /* next DSU; may be full */
  char next_ren[8];        /* may be full */
  uint32_t transmission_time_out;
  uint16_t retry_limit;
  unsigned char spare66[2];
  uint32_t send_mu_id_time_out;
  uint32_t receive_mu_id_time_out;
  char remote_server[64];  /* not kept with APPC; an empty one is derived from the next DSU */
  uint32_t tcpip_time_out; /* not kept with APPC */
};
DB_AT(db_scn, protocol, 16);
DB_AT(db_scn, send_tp, 20);
DB_AT(db_scn, next_rgn, 44);
DB_AT(db_scn, transmission_time_out, 60);
DB_AT(db_scn, send_mu_id_time_out, 68);
DB_AT(db_scn, remote_server, 76);
DB_AT(db_scn, tcpip_time_out, 140);
DB_SIZE(db_scn, 144);

/* ---- SNADS configuration (DB_SCF): one record, without a key. ----------- */

struct db_scf {
  uint16_t origin_hop_count;
  uint16_t max_crmu;
  uint32_t transmission_hold_time;        /* of these two the low 16 bits are written */
  uint32_t allocation_failure_retry_time;
};
DB_SIZE(db_scf, 12);

/* ---- SNADS routes (DB_RTE): one record, without a key. ------------------ */

#define DB_MAX_ROUTES 1600
struct db_route {
  char rgn[8];             /* destination; may be full */
  char ren[8];             /* may be full */
  uint8_t priority;        /* 255: any, as in the next three */
  uint8_t protection;
  uint8_t capacity;
  uint8_t security;
  char connection[16];
  unsigned char spare36[2];
  uint16_t hop_count;
};
DB_AT(db_route, priority, 16);
DB_AT(db_route, connection, 20);
DB_AT(db_route, hop_count, 38);
DB_SIZE(db_route, 40);
/* A put writes as many routes as its length holds.  The whole text is of at most 65535
 * bytes: a longer one is DBE_IO_ERROR, and the stored one stays. */
struct db_rte {
  uint16_t num_routes;
  uint16_t network_protocol; /* 1 APPC, 2 TCP/IP, 3 both (written as APPC); 0 is read as 2 */
  struct db_route routes[DB_MAX_ROUTES];
};
DB_AT(db_rte, routes, 4);
DB_SIZE(db_rte, 64004);

/* ---- User configuration (DB_UCF): one record, without a key. ------------ */

struct db_ucf_class {
  uint8_t config; /* the rights as in db_apr */
  uint8_t prep;
  uint8_t cm;
  uint8_t dist;
  uint8_t tcq;
  uint8_t system;
  uint8_t target;
  uint8_t spare7;
};
DB_SIZE(db_ucf_class, 8);
struct db_ucf {
  struct db_ucf_class user;
  struct db_ucf_class prep;
  struct db_ucf_class admn;
};
DB_AT(db_ucf, prep, 8);
DB_AT(db_ucf, admn, 16);
DB_SIZE(db_ucf, 24);

/* ---- List states -------------------------------------------------------- */

/* A cursor over records in key order, begun with db_init_list and moved by db_get_more;
 * it holds nothing but what is seen here, and may be copied.  key_len bytes follow: the
 * key returned last. */
struct db_list_state {
  unsigned char start_key[244]; /* the list begins at or behind this key */
  uint16_t index_no;            /* number of the key that the list goes by */
  uint16_t key_match;           /* bytes of start_key that a record must share */
  uint16_t first_time;          /* 1 before the first record */
  uint16_t key_len;             /* of the record file */
  uint16_t init_ok;             /* 1 once db_init_list succeeded */
  uint16_t spare254;
};
DB_AT(db_list_state, index_no, 244);
DB_AT(db_list_state, key_match, 246);
DB_AT(db_list_state, first_time, 248);
DB_AT(db_list_state, key_len, 250);
DB_AT(db_list_state, init_ok, 252);
DB_SIZE(db_list_state, 256);

/* Least sizes of the list state of each type. */
enum {
  DB_TRG_LIST_STATE = 420,
  DB_PRM_LIST_STATE = 420,
  DB_GROUP_LIST_STATE = 328,   /* DB_TG, DB_DTG */
  DB_USER_LIST_STATE = 280,    /* DB_USR, DB_APR */
  DB_PRODUCT_LIST_STATE = 272, /* DB_PRD, DB_FST */
  DB_REQUEST_LIST_STATE = 332  /* DB_RQR to DB_RQT, DB_RQV */
};

#ifdef __cplusplus
}
#endif
#endif

-- The two tables of the platform database `qor` that qorclustd reads and writes. The program
-- never creates them; this file sets up test databases, the demo and operators' test clusters.
-- Decimal columns keep two decimals; updated_at is stamped by the database (the program writes
-- now() into it on every change).

CREATE TABLE IF NOT EXISTS clusters (
  id             INT NOT NULL AUTO_INCREMENT,
  hostname       VARCHAR(255) NOT NULL DEFAULT '',
  ipaddress      VARCHAR(255) NOT NULL DEFAULT '',
  clusterid      VARCHAR(255) NOT NULL DEFAULT '',
  role           VARCHAR(32)  NOT NULL DEFAULT '',
  role_id        INT NOT NULL DEFAULT 0,
  status         INT NOT NULL DEFAULT 0,
  dbwrite_count  BIGINT NOT NULL DEFAULT 0,
  last_writemill BIGINT NOT NULL DEFAULT 0,
  tpl_updatemill BIGINT NOT NULL DEFAULT 0,
  tpl_syncmill   BIGINT NOT NULL DEFAULT 0,
  tpl_syncstate  INT NOT NULL DEFAULT 0,
  cpuinfo        VARCHAR(255) NOT NULL DEFAULT '',
  cpus           INT NOT NULL DEFAULT 0,
  cpuphycores    INT NOT NULL DEFAULT 0,
  cpucores       INT NOT NULL DEFAULT 0,
  cpuprocs       INT NOT NULL DEFAULT 0,
  cpuloadavg     DECIMAL(10,2) NOT NULL DEFAULT 0.00,
  cpuloadavgpp   DECIMAL(10,2) NOT NULL DEFAULT 0.00,
  containers     INT NOT NULL DEFAULT 0,
  updated_at     DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP,
  qortimemill    BIGINT NOT NULL DEFAULT 0,
  cpuutil        DECIMAL(10,2) NOT NULL DEFAULT 0.00,
  memutil        DECIMAL(10,2) NOT NULL DEFAULT 0.00,
  diskutil       DECIMAL(10,2) NOT NULL DEFAULT 0.00,
  qorver         VARCHAR(255) NOT NULL DEFAULT '',
  created_at     DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP,
  PRIMARY KEY (id),
  KEY clusters_hostname (hostname),
  KEY clusters_role (role_id)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;

CREATE TABLE IF NOT EXISTS containers (
  id               INT NOT NULL AUTO_INCREMENT,
  containerid      VARCHAR(255) NULL DEFAULT '',
  containername    VARCHAR(255) NULL DEFAULT '',
  username         VARCHAR(255) NULL DEFAULT '',
  groupname        VARCHAR(255) NULL DEFAULT '',
  organizationname VARCHAR(255) NULL DEFAULT '',
  hostname         VARCHAR(255) NOT NULL DEFAULT '',
  created_at       DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP,
  updated_at       DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP ON UPDATE CURRENT_TIMESTAMP,
  PRIMARY KEY (id),
  KEY containers_hostname (hostname)
) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;

-- Maintenance marks, qorclustd's own table: a marked server is not taken over until the mark
-- expires (by the database's clock). qorclustd creates it when missing.
CREATE TABLE IF NOT EXISTS qorclustd_maintenance (
  hostname  VARCHAR(255) NOT NULL PRIMARY KEY,
  reason    VARCHAR(255) NOT NULL DEFAULT '',
  marked_by VARCHAR(255) NOT NULL DEFAULT '',
  since     DATETIME NOT NULL,
  until     DATETIME NOT NULL
);

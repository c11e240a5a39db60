-- The factory settings of the example router: a table of one row for each group of parameters, a column for each
-- parameter. What a column may hold is said in docs/parameters.md.

create table system (
  hostname   text    not null,  -- type 6
  language   text    not null,  -- type 6
  led        integer not null,  -- type 0
  log_level  integer not null,  -- type 1
  boot_count integer not null   -- type 2
);
insert into system values ('cpe', 'en', 1, 2, 0);

create table wifi (
  enabled    integer not null,  -- type 0
  ssid       text    not null,  -- type 6
  passphrase text    not null,  -- type 6
  channel    integer not null,  -- type 1
  max_users  integer not null,  -- type 4
  tx_power   integer not null   -- type 2, in tenths of a dBm
);
insert into wifi values (1, 'cpe-5g', 'change me', 36, 32, -15);

create table cellular (
  apn          text    not null,  -- type 6
  roaming      integer not null,  -- type 0
  bands        integer not null,  -- type 5, one bit for each band
  mtu          integer not null,  -- type 7
  volume_limit integer not null   -- type 5, in bytes
);
insert into cellular values ('internet', 0, 2748779069572, 1430, 107374182400);

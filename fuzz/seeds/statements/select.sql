select distinct a."b c", `d`, [e], 'f''g', count(*) over (), (select 1) x -- y
from s.t a join u using (k) where a.x = 1.5e3 /* z */ group by 1 having 1 order by 2, n;
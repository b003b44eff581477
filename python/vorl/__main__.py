from .report import main

raise SystemExit(main())

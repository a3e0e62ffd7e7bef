"""The heat field of the example: what its model starts from and its screenshot shows."""

ROWS, COLUMNS = 48, 72
EDGE = 20.0
# Row, column, power.
SOURCES = [(14, 20, 120.0), (33, 50, 80.0), (30, 14, -60.0)]


def field(steps):
    """Temperatures after so many steps of the five-point scheme, as rows."""
    t = [[EDGE] * COLUMNS for _ in range(ROWS)]
    for _ in range(steps):
        n = [row[:] for row in t]
        for r in range(1, ROWS - 1):
            for c in range(1, COLUMNS - 1):
                n[r][c] = t[r][c] + 0.22 * (
                    t[r][c - 1] + t[r][c + 1] + t[r - 1][c] + t[r + 1][c] - 4 * t[r][c])
        for r, c, power in SOURCES:
            for dr in (0, 1):
                for dc in (0, 1):
                    n[r + dr][c + dc] += power * 0.02
        t = n
    return t

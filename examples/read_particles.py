import h5py

with h5py.File("beam.h5", "r") as f:
    # The phase space x, x' at the plane of row 3 of the optics table.
    mu = f["data/3/particles/anti-muon"]
    x, xp = mu["position/x"][:], 1000 * mu["momentum/x"][:] / mu["momentum/z"][:]  # mm, mrad
    print(f"s = {f['data/3'].attrs['sPosition']} m: {len(x)} muons, <x x'> = {(x * xp).mean():.3f}")
    # import matplotlib.pyplot as plt; plt.scatter(x, xp, s=2); plt.savefig("x-xp.png")

    # One track followed through the planes (h5py lists them as text: 0, 1, 10, ..., 2).
    for k in sorted(f["data"], key=int):
        mu = f[f"data/{k}/particles/anti-muon"]
        hit = mu["id"][:] == 7
        print(f[f"data/{k}"].attrs["sPosition"], mu["position/x"][hit], mu["time"][hit])

"use strict";

const item = ([name, plant]) => {
    const li = document.querySelector("template").content.cloneNode(true).querySelector("li");
    const days = Math.floor((Date.now() / 1000 - plant.watered) / 86400);
    li.querySelector("img").src = `/pictures/${name}.jpg`;
    li.querySelector("b").textContent = name;
    li.querySelector("span").textContent =
        plant.watered === 0 ? "never watered" : `watered ${days} of ${plant.days} days ago`;
    li.querySelector("form").action = `/plants/${name}/picture`;
    li.querySelector("button").onclick = async () => {
        await fetch(`/plants/${name}/water`, { method: "POST" });
        refresh();
    };
    return li;
};
const show = (plants) => document.querySelector("ul").replaceChildren(...Object.entries(plants).map(item));
const refresh = async () => show(await (await fetch("/plants")).json());
refresh();
